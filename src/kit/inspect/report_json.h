#ifndef MORVA_KIT_INSPECT_REPORT_JSON_H_
#define MORVA_KIT_INSPECT_REPORT_JSON_H_

#include <string_view>

#include "kit/inspect/json_writer.h"
#include "kit/inspect/message_order.h"
#include "kit/inspect/recording.h"
#include "kit/inspect/selection.h"
#include "kit/inspect/summary.h"

/// What is printed as JSON: each function writes one object and the end of its line.
namespace morva::inspect {

/// A recording as a whole, with its topics.
void writeInfo(const Recording& recording, const Selection& selection, const Summary& summary,
               JsonWriter* json);
/// One of its topics, with the fields of its samples.
void writeTopic(const Recording& recording, const TopicSummary& topic, JsonWriter* json);
void writeMessage(const Recording& recording, const ListedMessage& message, JsonWriter* json);

/// A recording that cannot be shown, with what its header says, where that can be read.
void writeFailedInfo(const Recording& recording, const Problem& problem, JsonWriter* json);
/// The same in a listing of this schema.
void writeFailure(std::string_view schema, const Recording& recording, const Problem& problem,
                  JsonWriter* json);

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_REPORT_JSON_H_
