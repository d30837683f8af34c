// One scan's payload to a point cloud, against a protobuf message on the heap and its conversion.

#include <cstdint>
#include <string>

#include <benchmark/benchmark.h>
#include <kbag_msgs.pb.h>

#include "bench/input_messages.h"
#include "messages/msg_converter.h"
#include "messages/msg_converter_pri.h"

namespace {

using morva::MsgConverter;
using morva::MsgConverterPri;

const std::string& payload() {
  static const std::string bytes = morva::bench::LidarMessages().payload(7, morva::bench::kFirstUs);
  return bytes;
}

void countPoints(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                          morva::bench::kPointsPerScan);
}

void decodeOurs(benchmark::State& state) {
  const std::string& bytes = payload();
  for (auto _ : state) {
    const auto frames = MsgConverter::fromPointCloudMsgArray(bytes);
    if (frames.size() != 1) return state.SkipWithError("the payload was not decoded");
    benchmark::DoNotOptimize(frames.front()->cloud->cloud->points.data());
  }
  countPoints(state);
}
BENCHMARK(decodeOurs)->Name("LidarDecode/ours")->Unit(benchmark::kMillisecond);

void decodePeer(benchmark::State& state) {
  const std::string& bytes = payload();
  for (auto _ : state) {
    protix::kbag_msgs::LidarPointMsgArray array;
    if (!array.ParseFromString(bytes)) return state.SkipWithError("the payload is damaged");
    const auto frame = MsgConverterPri::fromPBMsg(array.msgs(0));
    benchmark::DoNotOptimize(frame->cloud->cloud->points.data());
  }
  countPoints(state);
}
BENCHMARK(decodePeer)->Name("LidarDecode/peer")->Unit(benchmark::kMillisecond);

}  // namespace
