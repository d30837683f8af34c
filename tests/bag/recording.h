#ifndef MORVA_TESTS_BAG_RECORDING_H_
#define MORVA_TESTS_BAG_RECORDING_H_

#include <cstdint>
#include <string>
#include <vector>

#include "morva/bag.h"

namespace morva::test {

struct Message {
  std::string topic;
  std::int64_t firstTimeUs = 0;
  std::string data = "payload";
  std::uint32_t count = 1;
  std::int64_t secondTimeUs = 0;  ///< 0: the same as the first
  bool compress = false;
};

/// The message time that goes with a first header time; not the same, so that no test mixes them
/// up.
inline std::int64_t writeTimeOf(const Message& message) { return message.firstTimeUs - 7; }

struct RecordingOptions {
  CompressionType compression = CompressionType::kNone;
  std::string privateData{};
};

/// Records messages through the handle and closes it; fails the test when any step does.
void record(const std::string& path, const std::vector<std::string>& topics,
            const std::vector<Message>& messages, const RecordingOptions& options = {});

/// Writes one message to an open handle.
[[nodiscard]] bool write(MorvaBag& bag, const Message& message);

/// The payloads of a view, one after another; fails the test when one cannot be read.
std::vector<std::string> readAll(const MorvaBag& bag, const View& view);

/// The first header times of a view's messages, in view order.
std::vector<std::int64_t> timesOf(const View& view);

/// The topic name of a view's record.
std::string nameOf(const MsgIndex& index);

}  // namespace morva::test

#endif  // MORVA_TESTS_BAG_RECORDING_H_
