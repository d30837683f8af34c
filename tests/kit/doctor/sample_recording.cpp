#include "kit/doctor/sample_recording.h"

#include <random>
#include <stdexcept>

#include "bag/bag_bytes.h"
#include "morva/bag.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using Random = std::mt19937;

std::uint32_t below(Random& random, std::size_t limit) {
  return static_cast<std::uint32_t>(random() % limit);
}

/// Begins with a number of its own; half of it can be compressed.
std::string makePayload(Random& random, std::size_t number, std::size_t maxBytes) {
  std::string payload = "payload " + std::to_string(number) + ": ";
  const std::size_t size = below(random, maxBytes);
  while (payload.size() < size) {
    const std::string word = std::to_string(random());
    payload += random() % 2 == 0 ? word : std::string(below(random, 60), word[0]);
  }
  return payload;
}

std::string carriedBag(Random& random) {
  return makeSample(
             {.seed = static_cast<std::uint32_t>(random()), .messages = 5, .maxPayloadBytes = 200})
      .bytes;
}

void record(const SampleOptions& options, const SampleRecording& sample, const std::string& path) {
  MorvaBag bag;
  bag.topics = sample.topics;
  bag.compressionType = options.compression;
  bool done = bag.open(path, BagMode::kWrite, options.privateData) == MorvaBag::kOpenOk;
  for (const SampleMessage& message : sample.messages) {
    const std::string header = MorvaBag::makeMessageHeader(
        message.compress, message.count, message.firstTimeUs, message.secondTimeUs);
    done = done && bag.writeMessage(message.topic, message.timeUs, header, message.payload);
  }
  if (!done || !bag.close()) throw std::runtime_error("the sample was not recorded");
}

}  // namespace

SampleRecording makeSample(const SampleOptions& options) {
  Random random(options.seed);
  SampleRecording sample;
  sample.topics = {"/imu_like", "/free", "/another topic", "/never"};
  std::int64_t timeUs = 1'700'000'000'000'000;
  for (std::size_t i = 0; i < options.messages; ++i) {
    SampleMessage message;
    message.topicId = below(random, sample.topics.size() - 1);
    message.topic = sample.topics[message.topicId];
    message.payload = makePayload(random, i, options.maxPayloadBytes);
    if (options.carriesBag && i % 7 == 3) message.payload += carriedBag(random);
    message.count = 1 + below(random, 5);
    timeUs += 1 + below(random, 100'000);
    message.timeUs = timeUs;
    message.firstTimeUs = timeUs - 500 - below(random, 100);
    message.secondTimeUs = timeUs - 100 - below(random, 100);
    message.compress = random() % 4 != 0;
    sample.messages.push_back(message);
  }
  const TempDir dir;
  record(options, sample, dir / "x.kbag");
  sample.bytes = readFile(dir / "x.kbag");
  std::size_t next = 0;
  for (const RawChunk& chunk : walkBytes(sample.bytes)) {
    if (chunk.type != 1) continue;
    sample.messages.at(next).begin = chunk.offset;
    sample.messages.at(next++).end = chunk.end();
  }
  return sample;
}

SampleRecording unclosed(SampleRecording sample) {
  sample.bytes = withoutClose(sample.bytes);
  return sample;
}

}  // namespace morva::test
