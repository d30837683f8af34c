// Opening an index of 1,000,000 entries: all of its topics decoded, against the general parser's
// message of the same bytes in an arena, which is not yet what a view needs.

#include <cstdint>
#include <memory>
#include <random>
#include <string>

#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include "kbag_msgs.pb.h"
#include "storage/index_codec.h"

namespace {

using morva::BagFile;
using protix::kbag_msgs::ChunkIndexData;

constexpr int kEntries = 1'000'000;
constexpr int kTopics = 8;

/// The index of a recording of many small messages; the same in every run.
const std::string& indexBytes() {
  static const std::string bytes = [] {
    std::minstd_rand random(1);
    BagFile::TopicIndexes indexes;
    std::uint64_t offset = 4660;
    for (std::uint32_t id = 0; id < kTopics; ++id) {
      indexes[id] = std::make_shared<BagFile::TopicIndex>();
    }
    for (int i = 0; i < kEntries; ++i) {
      const auto id = static_cast<std::uint32_t>(random() % kTopics);
      BagFile::TopicHeader entry;
      entry.time = 1'700'000'000'000'000 + std::int64_t{100} * i;
      entry.headerTimes = {entry.time - 50, entry.time - 20};
      entry.count = static_cast<std::uint32_t>(1 + random() % 20);
      entry.rawSize = entry.storedSize = static_cast<std::uint32_t>(60 + random() % 1000);
      entry.topicId = static_cast<std::int32_t>(id);
      indexes[id]->append(entry, offset);
      offset += 52 + entry.storedSize;
    }
    std::string data;
    return morva::encodeTopicIndexes(indexes, &data) ? data : std::string();
  }();
  return bytes;
}

void decodeAll(benchmark::State& state) {
  const std::string& bytes = indexBytes();
  for (auto _ : state) {
    BagFile::TopicIndexes indexes;
    if (!morva::decodeTopicIndexes(bytes, &indexes) || indexes.size() != kTopics) {
      state.SkipWithError("the index was not decoded");
      break;
    }
  }
}

void parseInArena(benchmark::State& state) {
  const std::string& bytes = indexBytes();
  for (auto _ : state) {
    google::protobuf::Arena arena;
    auto* const message = google::protobuf::Arena::CreateMessage<ChunkIndexData>(&arena);
    if (!message->ParseFromString(bytes) || message->indexes_size() != kTopics) {
      state.SkipWithError("the index was not parsed");
      break;
    }
  }
}

BENCHMARK(decodeAll)->Name("OpenIndex/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(parseInArena)->Name("OpenIndex/peer")->Unit(benchmark::kMillisecond);

}  // namespace
