#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>

#include <benchmark/benchmark.h>

#include "bench/bench_support.h"
#include "bench/sensor_messages.h"
#include "export/frame_exporter.h"
#include "morva/bag.h"

namespace {

using morva::FrameExporter;
using morva::MorvaBag;
using morva::bench::bytesOf;
using morva::bench::ScratchDir;

/// Writes `messages` equal messages of one topic and exports them into its table, over and over;
/// bytes processed are those of the payloads.
void exportTopic(benchmark::State& state, const std::string& topic, const std::string& payload,
                 int messages) {
  const ScratchDir dir;
  std::error_code error;
  std::filesystem::create_directory(dir.file("csv"), error);
  MorvaBag bag;
  bag.topics = {topic};
  bool isGood = bag.open(dir.file("a.kbag"), morva::BagMode::kWrite) == MorvaBag::kOpenOk;
  const std::string header = MorvaBag::makeMessageHeader(false, 1, 1, 1);
  for (int i = 0; isGood && i < messages; ++i) isGood = bag.writeMessage(topic, 1, header, payload);
  isGood = bag.close() && isGood &&
           bag.open(dir.file("a.kbag"), morva::BagMode::kRead) == MorvaBag::kOpenOk;
  if (!isGood) {
    state.SkipWithError("there is no bag to export");
    return;
  }

  const MorvaBag::View view = bag.getView(topic, 0, 0);
  FrameExporter exporter(&bag, dir.file(""));
  for (auto _ : state) isGood = exporter.exportFrame(topic, view) && isGood;
  if (!isGood) state.SkipWithError("the topic was not exported");
  state.SetBytesProcessed(bytesOf(state, payload.size() * static_cast<std::size_t>(messages)));
}

// The last part of a name is the number of samples: IMU samples, lidar points.
[[maybe_unused]] const bool kRegistered = [] {
  benchmark::RegisterBenchmark("BM_FrameExporter_exportFrame/imu/20000",
                               [](benchmark::State& state) {
                                 exportTopic(state, "/imu", morva::bench::imuPayload(200), 100);
                               })
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("BM_FrameExporter_exportFrame/lidar/200000", [](benchmark::State&
                                                                                   state) {
    exportTopic(state, "/lidar", morva::bench::lidarPayload(20000), 10);
  })->Unit(benchmark::kMillisecond);
  return true;
}();

}  // namespace
