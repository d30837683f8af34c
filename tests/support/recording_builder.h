#ifndef MORVA_TESTS_SUPPORT_RECORDING_BUILDER_H_
#define MORVA_TESTS_SUPPORT_RECORDING_BUILDER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "morva/bag.h"

namespace morva::test {

/// Collects messages and records them into a bag file through the library.
///
///   pb::ImuMsgArray imu;
///   ...
///   RecordingBuilder recording;
///   recording.add("/imu", imu).addPayload("/imu", "not a message");
///   recording.write(dir / "x.kbag");
///
/// Failures to record throw, which fails the test.
class RecordingBuilder {
 public:
  explicit RecordingBuilder(
      MorvaBag::CompressionType compression = MorvaBag::CompressionType::kNone)
      : compression_(compression) {}

  /// Adds a topic, which may stay without messages. Topics are handed over in the order of adding.
  RecordingBuilder& addTopic(const std::string& topic);

  /// Adds one array message: its count is the number of samples, its header times are those of the
  /// first and last sample. An array without samples is recorded too, with a count of 1.
  template <typename Array>
  RecordingBuilder& add(const std::string& topic, const Array& array) {
    if (array.msgs_size() == 0) return addPayload(topic, array.SerializeAsString());
    return addPayload(
        topic, array.SerializeAsString(), static_cast<std::uint32_t>(array.msgs_size()),
        array.msgs(0).header().timestamp(), array.msgs(array.msgs_size() - 1).header().timestamp());
  }

  /// Adds a message with any payload. Empty payloads and counts of 0 are stored and cannot be read.
  RecordingBuilder& addPayload(const std::string& topic, const std::string& payload,
                               std::uint32_t count = 1, std::int64_t firstTimeUs = 1'000'000,
                               std::int64_t secondTimeUs = 1'000'000);

  /// The serialized device record, or whatever else stands in its place.
  RecordingBuilder& setPrivateData(const std::string& privateData);

  /// Records everything into a new bag at `path`. @return `path`.
  // NOLINTNEXTLINE(modernize-use-nodiscard): most callers know the path
  std::string write(const std::string& path) const;

 private:
  struct Message {
    std::string topic;
    std::string payload;
    std::uint32_t count = 0;
    std::int64_t firstTimeUs = 0;
    std::int64_t secondTimeUs = 0;
  };

  MorvaBag::CompressionType compression_;
  std::string privateData_;
  std::vector<std::string> topics_;
  std::vector<Message> messages_;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_RECORDING_BUILDER_H_
