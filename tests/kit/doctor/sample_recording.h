#ifndef MORVA_TESTS_KIT_DOCTOR_SAMPLE_RECORDING_H_
#define MORVA_TESTS_KIT_DOCTOR_SAMPLE_RECORDING_H_

#include <cstdint>
#include <string>
#include <vector>

#include "morva/records.h"

namespace morva::test {

/// A message as it was recorded, and where its chunk lies.
struct SampleMessage {
  std::string topic;
  std::uint32_t topicId = 0;
  std::string payload;
  std::uint32_t count = 1;
  std::int64_t timeUs = 0;
  std::int64_t firstTimeUs = 0;
  std::int64_t secondTimeUs = 0;
  bool compress = false;
  std::size_t begin = 0, end = 0;  ///< bytes from the start of the file
};

struct SampleOptions {
  std::uint32_t seed = 1;
  CompressionType compression = CompressionType::kNone;
  std::size_t messages = 60;
  std::size_t maxPayloadBytes = 4000;
  bool carriesBag = false;  ///< some payloads are recordings themselves
  std::string privateData{};
};

/// A recording with known messages, each with a payload and times of its own.
struct SampleRecording {
  std::vector<std::string> topics;  ///< their places are their ids
  std::vector<SampleMessage> messages;
  std::string bytes;
};

[[nodiscard]] SampleRecording makeSample(const SampleOptions& options);

/// The same as it is left when the recorder is killed: without an index, the header not finished.
[[nodiscard]] SampleRecording unclosed(SampleRecording sample);

}  // namespace morva::test

#endif  // MORVA_TESTS_KIT_DOCTOR_SAMPLE_RECORDING_H_
