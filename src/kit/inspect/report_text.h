#ifndef MORVA_KIT_INSPECT_REPORT_TEXT_H_
#define MORVA_KIT_INSPECT_REPORT_TEXT_H_

#include <string>

#include "kit/inspect/message_order.h"
#include "kit/inspect/recording.h"
#include "kit/inspect/summary.h"

/// The same as report_json.h, for people: whole lines.
namespace morva::inspect {

[[nodiscard]] std::string infoText(const Recording& recording, const Summary& summary);
[[nodiscard]] std::string topicsText(const Summary& summary);
[[nodiscard]] std::string messagesHeading();
[[nodiscard]] std::string messageText(const ListedMessage& message);

/// The name of a recording, above what is said of it.
[[nodiscard]] std::string titleText(const Recording& recording);

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_REPORT_TEXT_H_
