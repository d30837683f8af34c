#ifndef MORVA_KIT_INSPECT_SAMPLE_LISTING_H_
#define MORVA_KIT_INSPECT_SAMPLE_LISTING_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "kit/inspect/message_order.h"
#include "kit/inspect/recording.h"
#include "kit/inspect/row_writer.h"
#include "kit/inspect/sample_table.h"
#include "kit/inspect/selection.h"

namespace morva::inspect {

/// Lists the selected samples of a recording, by their own times, one message after another.
/// Messages whose two header times lie outside the limits are not read. Memory: the index, and one
/// message.
class SampleListing {
 public:
  /// Takes a piece of the listing. @return False to end it.
  using Print = std::function<bool(std::string_view text)>;

  /// @param recording  Open; must outlive the listing.
  SampleListing(Recording* recording, const Selection& selection, const Detail& detail);

  [[nodiscard]] bool hasTopics() const { return !messages_.topics().empty(); }
  /// Whether all selected topics have samples of the same kind, as one table wants them.
  [[nodiscard]] bool isOfOneKind() const;

  /// @return Messages that could not be shown.
  [[nodiscard]] std::uint64_t print(RowWriter* writer, const Print& print);

 private:
  [[nodiscard]] const SampleTable& tableOf(const Topic& topic);

  Recording* recording_;
  Detail detail_;
  MessageOrder messages_;
  std::map<MessageKind, std::unique_ptr<SampleTable>> tables_;
};

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_SAMPLE_LISTING_H_
