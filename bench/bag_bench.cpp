#include <cstdint>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/bench_support.h"
#include "bench/sensor_payload.h"
#include "morva/bag.h"

namespace {

using morva::MorvaBag;
using morva::bench::bytesOf;
using morva::bench::makeSensorPayload;
using morva::bench::ScratchDir;

constexpr std::size_t kPayloadBytes = 1024;
constexpr char kTopic[] = "/imu";

/// The last part of a name is the number of messages; bytes processed are those of the payloads.
class BagOfMessages {
 public:
  explicit BagOfMessages(std::int64_t messages) {
    const std::string payload = makeSensorPayload(kPayloadBytes);
    MorvaBag bag;
    bag.topics = {kTopic};
    bag.compressionType = morva::CompressionType::kLz4;
    bag.writeBufferSize = 1U << 20U;
    isWritten_ = bag.open(path(), morva::BagMode::kWrite) == MorvaBag::kOpenOk;
    for (std::int64_t timeUs = 1; isWritten_ && timeUs <= messages; ++timeUs) {
      const std::string header = MorvaBag::makeMessageHeader(true, 1, timeUs, timeUs);
      isWritten_ = bag.writeMessage(kTopic, timeUs, header, payload);
    }
    isWritten_ = bag.close() && isWritten_;
  }

  [[nodiscard]] std::string path() const { return dir_.file("a.kbag"); }
  [[nodiscard]] bool isWritten() const { return isWritten_; }

 private:
  ScratchDir dir_;
  bool isWritten_ = false;
};

void finish(benchmark::State& state, bool isGood) {
  if (!isGood) state.SkipWithError("the bag was not written, or not read");
  state.SetBytesProcessed(bytesOf(state, static_cast<std::size_t>(state.range(0)) * kPayloadBytes));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_MorvaBag_open(benchmark::State& state) {
  const BagOfMessages recording(state.range(0));
  bool isGood = recording.isWritten();
  for (auto _ : state) {
    MorvaBag bag;
    isGood = bag.open(recording.path(), morva::BagMode::kRead) == MorvaBag::kOpenOk && isGood;
  }
  finish(state, isGood);
}
BENCHMARK(BM_MorvaBag_open)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_MorvaBag_getView(benchmark::State& state) {
  const BagOfMessages recording(state.range(0));
  MorvaBag bag;
  bool isGood = recording.isWritten() &&
                bag.open(recording.path(), morva::BagMode::kRead) == MorvaBag::kOpenOk;
  for (auto _ : state) {
    const morva::View view = bag.getView(kTopic, 0, 0);
    isGood = static_cast<std::int64_t>(view.indexes.size()) == state.range(0) && isGood;
  }
  finish(state, isGood);
}
BENCHMARK(BM_MorvaBag_getView)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_MorvaBag_checkAll(benchmark::State& state) {
  const BagOfMessages recording(state.range(0));
  bool isGood = recording.isWritten();
  for (auto _ : state) isGood = MorvaBag::checkAll(recording.path()) == 0 && isGood;
  finish(state, isGood);
}
BENCHMARK(BM_MorvaBag_checkAll)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_MorvaBag_reindex(benchmark::State& state) {
  const BagOfMessages recording(state.range(0));
  bool isGood = recording.isWritten();
  for (auto _ : state) isGood = MorvaBag::reindex(recording.path()) == 0 && isGood;
  finish(state, isGood);
}
BENCHMARK(BM_MorvaBag_reindex)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace
