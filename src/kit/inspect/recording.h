#ifndef MORVA_KIT_INSPECT_RECORDING_H_
#define MORVA_KIT_INSPECT_RECORDING_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/inspect/time_limit.h"
#include "morva/records.h"
#include "storage/bag_reader.h"

namespace morva::inspect {

/// Why a recording, or a message, cannot be shown.
struct Problem {
  std::string_view code;     ///< for programs: "missing", "no_index", ...
  std::string_view message;  ///< for people
};

/// Where the account of a recording's messages comes from.
enum class IndexSource : std::uint8_t {
  kNone,
  kRecording,  ///< the index in its end
  kSideFile,   ///< "<recording>.index"
  kScan,       ///< its chunks, one after another
};

/// The word for it, in texts and in JSON alike.
[[nodiscard]] std::string_view wordFor(IndexSource source);

struct Topic {
  std::uint32_t id = 0;
  std::string name;
};

/// A recording that is open for reading, and the index of its messages. Unlike MorvaBag it opens
/// recordings without an index too, to tell what their headers say.
class Recording {
 public:
  /// @param scan  Where there is no usable index, walk through the file to make one.
  /// @return Why it is not, or not wholly, open: header() and so on can be used where
  /// hasHeader(),
  ///         topics and messages where there is no problem.
  [[nodiscard]] std::optional<Problem> open(const std::string& path, bool scan);

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] bool hasHeader() const { return hasHeader_; }
  [[nodiscard]] const BagFile::Header& header() const { return reader_.header(); }
  [[nodiscard]] std::uint64_t fileBytes() const { return fileBytes_; }
  [[nodiscard]] IndexSource indexSource() const { return indexSource_; }
  /// Of a scan: where it ended, bytes from the start of the file.
  [[nodiscard]] std::uint64_t scannedBytes() const { return scannedBytes_; }
  /// Nothing where the header carries no device record.
  [[nodiscard]] std::optional<DeviceInfo> device() const;

  /// Every topic that the recording defines, in ascending order of names.
  [[nodiscard]] const std::vector<Topic>& topics() const { return topics_; }
  /// Its messages in writing order; null where it has none.
  [[nodiscard]] std::shared_ptr<const BagFile::TopicIndex> messagesOf(const Topic& topic) const;
  /// From the least first to the greatest second header time of all messages; nothing where there
  /// are none.
  [[nodiscard]] std::optional<TimeSpan> span() const;

  /// Reads a message of messagesOf(). @return False after an error line.
  [[nodiscard]] bool read(const BagFile::TopicHeader& entry, std::uint64_t chunkOffset,
                          std::string* payload);

 private:
  void listTopics();
  void scan();
  [[nodiscard]] std::optional<BagFile::TopicTotals> totalsOf(const Topic& topic) const;

  std::string path_;
  BagReader reader_;
  bool hasHeader_ = false;
  std::uint64_t fileBytes_ = 0;
  IndexSource indexSource_ = IndexSource::kNone;
  std::uint64_t scannedBytes_ = 0;
  BagFile::TopicIndexes scanned_;
  std::vector<Topic> topics_;
};

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_RECORDING_H_
