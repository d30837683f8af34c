// A recording of ten times the length needs no more memory to unpack, but for two things:
// - its index, which is held for every message. What that costs is measured: a run over the same
//   recording that unpacks one topic of five messages does nothing else that grows;
// - the write buffer of a table, which fills with the table up to its size. With one worker one
//   table is open at a time.
// What makes up a recording's bulk, clouds and pictures, must come and go.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/process.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

constexpr double kFactor = 1.5;
constexpr double kMib = 1024.0 * 1024.0;
constexpr std::int64_t kTableBufferBytes = 0x1000000;
constexpr const char* kBagName = "2024-01-31-235959.kbin";

/// Removes clouds and pictures as they come: a gigabyte of them would reach the disk, and nobody
/// looks at them.
class Remover {
 public:
  explicit Remover(const std::string& out)
      : folders_{out + "/lidar_points", out + "/images/camera_0"}, thread_([this] { run(); }) {}
  Remover(const Remover&) = delete;
  Remover& operator=(const Remover&) = delete;
  ~Remover() { end(); }

  /// Removes the last ones. @return How many there were in all.
  int end() {
    ended_ = true;
    if (thread_.joinable()) thread_.join();
    return removed_;
  }

 private:
  void run() {
    bool isLastRound = false;
    while (!isLastRound) {
      isLastRound = ended_;
      for (const std::string& folder : folders_) sweep(folder);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  void sweep(const std::string& folder) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
      const std::string suffix = entry.path().extension();
      if (suffix == ".pcd" || suffix == ".jpg") removed_ += fs::remove(entry.path(), error) ? 1 : 0;
    }
  }

  const std::vector<std::string> folders_;
  std::atomic<bool> ended_ = false;
  int removed_ = 0;
  std::thread thread_;
};

/// A project folder with a simulated recording.
class Project {
 public:
  Project(int seconds, const std::vector<std::string>& options) {
    fs::create_directory(dir_ / "project");
    std::vector<std::string> command = {KBAGKIT_PROGRAM, "simulate", bag(), "--seconds",
                                        std::to_string(seconds)};
    command.insert(command.end(), options.begin(), options.end());
    if (runProcess(command).exitCode != 0) throw std::runtime_error("simulate failed");
  }

  /// Peak of unpacking it. @param outputs  Clouds and pictures that come of it.
  [[nodiscard]] std::int64_t unpack(int outputs, const std::string& topic = {}) const {
    std::vector<std::string> command = {KBAG_PROGRAM, "unpack", bag(), "--dir", out()};
    if (!topic.empty()) command.insert(command.end(), {"--topic", topic});
    fs::remove_all(out());
    fs::create_directory(out());
    return peakOf(command, out(), outputs);
  }
  /// The same with the recorded calibration applied.
  [[nodiscard]] std::int64_t unpackDevice(int outputs) const {
    fs::remove_all(out());
    return peakOf({KBAGKIT_PROGRAM, "batch", dir_ / "project", "--out", out(), "--device"},
                  out() + "/project", outputs);
  }
  /// Peak where nothing grows but the index.
  [[nodiscard]] std::int64_t holdIndex() const { return unpack(0, "/project_data"); }

 private:
  [[nodiscard]] std::string bag() const { return dir_ / "project/" + kBagName; }
  [[nodiscard]] std::string out() const { return dir_ / "out"; }

  static std::int64_t peakOf(const std::vector<std::string>& command, const std::string& out,
                             int outputs) {
    Remover remover(out);
    const std::int64_t peak = peakMemoryOf(command);
    EXPECT_EQ(remover.end(), outputs);
    return peak;
  }

  TempDir dir_;
};

void expectBounded(const std::string& what, std::int64_t shortRun, std::int64_t longRun,
                   std::int64_t indexBytes, std::int64_t bufferBytes) {
  const std::int64_t rest = longRun - indexBytes - bufferBytes;
  const double factor = static_cast<double>(rest) / static_cast<double>(shortRun);
  std::printf("%s: %.1f -> %.1f MiB; index %.1f, buffer up to %.1f MiB; without these %.2f times\n",
              what.c_str(), static_cast<double>(shortRun) / kMib,
              static_cast<double>(longRun) / kMib, static_cast<double>(indexBytes) / kMib,
              static_cast<double>(bufferBytes) / kMib, factor);
  EXPECT_LT(factor, kFactor) << what;
}

}  // namespace

TEST(PeakMemory, OfTenMinutesOfScansIsThatOfOne) {
  const std::vector<std::string> options = {"--points", "2000", "--cameras", "0"};
  const Project minute(60, options);
  const Project tenMinutes(600, options);
  const std::int64_t index = tenMinutes.holdIndex() - minute.holdIndex();
  expectBounded("unpack", minute.unpack(600), tenMinutes.unpack(6000), index, kTableBufferBytes);
  // No table here outgrows its buffer's beginnings: that of the motor is left out.
  expectBounded("device batch", minute.unpackDevice(600), tenMinutes.unpackDevice(6000), index, 0);
}

TEST(PeakMemory, OfAMinuteOfPicturesIsThatOfSixSeconds) {
  const std::vector<std::string> options = {"--points", "0", "--cameras", "1"};
  const Project sixSeconds(6, options);
  const Project minute(60, options);
  const std::int64_t index = minute.holdIndex() - sixSeconds.holdIndex();
  expectBounded("pictures", sixSeconds.unpack(60, "/camera_left/h264"),
                minute.unpack(600, "/camera_left/h264"), index, 0);
}

}  // namespace morva::test
