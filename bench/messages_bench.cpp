#include <cstdint>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/bench_support.h"
#include "bench/sensor_messages.h"
#include "messages/msg_converter.h"

namespace {

using morva::MsgConverter;
using morva::bench::bytesOf;
using morva::bench::imuPayload;
using morva::bench::lidarPayload;

// The last part of a name is the number of samples in a payload; bytes processed are the payload's.

void BM_MsgConverter_fromImuMsgArray(benchmark::State& state) {
  const std::string payload = imuPayload(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(MsgConverter::fromImuMsgArray(payload));
  state.SetBytesProcessed(bytesOf(state, payload.size()));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_MsgConverter_fromImuMsgArray)->Arg(20)->Arg(200);

void BM_MsgConverter_fromPointCloudMsgArray(benchmark::State& state) {
  const std::string payload = lidarPayload(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(MsgConverter::fromPointCloudMsgArray(payload));
  state.SetBytesProcessed(bytesOf(state, payload.size()));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_MsgConverter_fromPointCloudMsgArray)->Arg(2000)->Arg(100000);

}  // namespace
