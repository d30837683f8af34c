#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/bench_support.h"
#include "bench/sensor_payload.h"
#include "storage/bag_reader.h"
#include "storage/bag_writer.h"

namespace {

using morva::BagFile;
using morva::BagReader;
using morva::BagWriter;
using morva::CompressionType;
using morva::MsgIndex;
using morva::bench::bytesOf;
using morva::bench::makeSensorPayload;
using morva::bench::ScratchDir;

constexpr std::size_t kBagBytes = 16U << 20U;
constexpr std::uint32_t kWriteBufferBytes = 1U << 20U;
constexpr char kTopic[] = "/lidar";

bool writeBag(const std::string& path, CompressionType codec, const std::string& payload) {
  BagWriter writer(codec, kWriteBufferBytes, "");
  if (writer.open(path) != BagFile::kOpenOk || !writer.setTopics({kTopic})) return false;
  BagFile::TopicHeader header;
  header.rawSize = static_cast<std::uint32_t>(payload.size());
  header.count = 1;
  for (std::size_t i = 0; i < kBagBytes / payload.size(); ++i) {
    header.time = header.headerTimes[0] = header.headerTimes[1] = static_cast<std::int64_t>(i + 1);
    if (writer.write(header, kTopic, payload) < 0) return false;
  }
  return writer.close();
}

std::vector<MsgIndex> messagesOf(const BagReader& reader) {
  std::vector<MsgIndex> messages;
  const auto index = reader.topicIndex(kTopic);
  for (std::size_t i = 0; index && i < index->entries.size(); ++i) {
    const BagFile::TopicHeader& entry = index->entries[i];
    MsgIndex& message = messages.emplace_back();
    message.topicId = static_cast<std::uint32_t>(entry.topicId);
    message.count = entry.count;
    message.rawSize = entry.rawSize;
    message.storedSize = entry.storedSize;
    message.chunkOffset = index->chunkOffsets[i];
  }
  return messages;
}

/// Whole bags of messages of one size; the file is in memory where temporary files are.
void write(benchmark::State& state, CompressionType codec, std::size_t size) {
  const ScratchDir dir;
  const std::string payload = makeSensorPayload(size);
  for (auto _ : state) {
    if (!writeBag(dir.file("a.kbag"), codec, payload)) {
      state.SkipWithError("the bag was not written");
      break;
    }
  }
  state.SetBytesProcessed(bytesOf(state, kBagBytes));
}

/// One message after another of a bag that the system has read before.
void read(benchmark::State& state, CompressionType codec, std::size_t size) {
  const ScratchDir dir;
  const std::string payload = makeSensorPayload(size);
  BagReader reader;
  if (!writeBag(dir.file("a.kbag"), codec, payload) ||
      reader.open(dir.file("a.kbag")) != BagFile::kOpenOk) {
    state.SkipWithError("there is no bag to read");
    return;
  }
  const std::vector<MsgIndex> messages = messagesOf(reader);
  std::string data;
  std::size_t next = 0;
  for (auto _ : state) {
    if (reader.read(messages[next], &data) < 0) {
      state.SkipWithError("a message was not read");
      break;
    }
    next = next + 1 < messages.size() ? next + 1 : 0;
  }
  state.SetBytesProcessed(bytesOf(state, size));
}

[[maybe_unused]] const bool kRegistered = [] {
  for (const auto& [name, codec] : morva::bench::kCodecs) {
    for (const std::size_t size :
         {std::size_t{4} << 10U, std::size_t{256} << 10U, std::size_t{4} << 20U}) {
      const std::string suffix = std::string(name) + "/" + std::to_string(size);
      const CompressionType type = codec;
      benchmark::RegisterBenchmark(("BM_BagWriter_write/" + suffix).c_str(),
                                   [=](benchmark::State& state) { write(state, type, size); });
      benchmark::RegisterBenchmark(("BM_BagReader_read/" + suffix).c_str(),
                                   [=](benchmark::State& state) { read(state, type, size); });
    }
  }
  return true;
}();

}  // namespace
