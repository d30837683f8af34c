// Damaged recordings through everything that unpacks one, the correction with their calibration
// included: nothing crashes, nothing hangs, nothing half-made is left.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hostile/allocation_watch.h"
#include "hostile/bag_damage.h"
#include "morva/batch_task.h"
#include "storage/bag_layout.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

/// A buffer of an output, and as much again for all else.
constexpr std::size_t kLargestAllocation = 2UL * 16 * 1024 * 1024;

/// A device's recording: samples, scans within the motor's times, pictures and a calibration.
std::vector<RecordedMessage> deviceRecording() {
  std::vector<RecordedMessage> messages = carriedMessages();
  messages.push_back(logMessage("/raw_gnss_log", "$GNGGA\n"));
  for (int i = 0; i < 3; ++i) {
    std::ranges::copy(sampleMessages(kStartUs + 100000 * i), std::back_inserter(messages));
  }
  messages.push_back(imageMessage("/camera_left/h264", kStartUs, h264Picture()));
  return messages;
}

/// A list of two lists, each of which is a list of two lists, and so on: 2 to the power of `depth`
/// numbers, where somebody writes them out.
std::string manyTimesItself(int depth) {
  std::string text = "l0: &l0 [1, 1]\n";
  for (int i = 1; i <= depth; ++i) {
    const std::string below = "*l" + std::to_string(i - 1);
    const std::string name = "l" + std::to_string(i);
    text += name + ": &" + name + " [" + below + ", " + below + "]\n";
  }
  const std::string last = "*l" + std::to_string(depth) + "\n";
  return text + "transform: " + last + "s: " + last + "Ka: " + last;
}

}  // namespace

template <typename Tool>
class HostileProject : public testing::Test {
 protected:
  HostileProject() {
    recordProject(dir_ / "p", deviceRecording());
    whole_ = readFile(bag());
    resetLargestAllocation();
  }
  ~HostileProject() override { EXPECT_LT(largestAllocation(), kLargestAllocation); }

  /// Unpacks a project with these bytes as its bag. @return False where they were none.
  bool unpack(const std::string& bytes) {
    writeFile(bag(), bytes);
    fs::remove_all(dir_ / "out");
    Tool tool;
    EXPECT_TRUE(tool.Init({{{dir_ / "p", dir_ / "out"}}, dir_ / "log", true, true}));
    tool.StartTask();
    while (!tool.IsTaskFinished()) std::this_thread::yield();
    EXPECT_THAT(tool.GetErrorCode(), testing::AnyOf(BagTool::kSuccess, BagTool::kNoBag));
    EXPECT_GE(tool.GetProgress(), 0);
    EXPECT_LE(tool.GetProgress(), 100);
    if (fs::exists(dir_ / "out")) expectNothingHalfMade();
    EXPECT_THAT(filesBeside(), testing::IsEmpty());
    return tool.GetErrorCode() == BagTool::kSuccess;
  }

  /// Words of the file set to hostile values, and bits flipped, behind right checksums.
  [[nodiscard]] std::string damaged(std::uint32_t seed) const {
    std::mt19937 random(seed);
    std::string bytes = whole_;
    const std::size_t from = seed % 4 == 0 ? 0 : layout::kHeaderBytes;
    const auto place = [&] { return from + random() % (bytes.size() - from); };
    for (std::uint32_t i = 0; i <= seed % 6; ++i) {
      bytes[place()] = static_cast<char>(random());
      bytes[place()] = static_cast<char>(random() % 2 == 0 ? 0xFF : 0x00);
      const std::size_t at = place();
      bytes[at] = static_cast<char>(bytes[at] ^ (1 << (random() % 8)));
    }
    repairChecksums(&bytes);
    return bytes;
  }

  [[nodiscard]] const std::string& whole() const { return whole_; }

 private:
  [[nodiscard]] std::string bag() const { return dir_ / "p/" + kBagName; }

  void expectNothingHalfMade() {
    for (const std::string& name : treeOf(dir_ / "out")) {
      EXPECT_FALSE(name.ends_with(".h264") || name.ends_with(".part")) << name;
    }
  }
  /// What lies in the folder and should not.
  [[nodiscard]] std::vector<std::string> filesBeside() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_.path())) {
      const std::string name = entry.path().filename().string();
      if (name != "log" && name != "out" && name != "p") names.push_back(name);
    }
    return names;
  }

  TempDir dir_;
  LogCapture quiet_;
  std::string whole_;
};

using Tools = testing::Types<BagTool, DevBagTool>;
TYPED_TEST_SUITE(HostileProject, Tools);

TYPED_TEST(HostileProject, RandomDamageBehindRightChecksumsIsSurvived) {
  int unpacked = 0;
  for (std::uint32_t seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE(seed);
    unpacked += this->unpack(this->damaged(seed)) ? 1 : 0;
  }
  EXPECT_GT(unpacked, 75) << "most of the damage is to reach the messages";
}

TYPED_TEST(HostileProject, FileCutAtAnyLengthIsSurvived) {
  const std::size_t step = this->whole().size() / 40 + 1;
  for (std::size_t length = 0; length < this->whole().size(); length += step) {
    SCOPED_TRACE(length);
    this->unpack(this->whole().substr(0, length));  // succeeds where the cut is in the padding
  }
}

TYPED_TEST(HostileProject, EveryPieceOfCalibrationMayBeAnything) {
  const std::vector<std::string> texts = {
      "",
      "calibrated: true\n",
      "transform: [1, 2, 3]\n",
      "transform: 5\n",
      "{ broken",
      transformYaml(std::vector<double>(16, 0.0)),
      transformYaml(std::vector<double>(16, 1e30)),
      "transform: [.nan, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1]\n",
      "s: [.inf, 1]\ne: .nan\ncalibrated: true\n",
      "Ka: [1, 2]\nBa: [.nan, 0, 0]\ncalibrated: true\n",
      std::string(100000, '['),
      "&a [*a, *a]",
      manyTimesItself(40),
      std::string("\0\xFF", 2)};
  const std::vector<std::string> names = {"imu.yaml",
                                          "lidar.yaml",
                                          "extrinsic_motor_lidar.yaml",
                                          "extrinsic_imu_motor.yaml",
                                          "extrinsic_imu_lidar.yaml",
                                          "extrinsic_camera_motor.yaml",
                                          "extrinsic_camera_lidar.yaml",
                                          "camera.yaml"};
  const TempDir dir;
  std::vector<RecordedMessage> messages = deviceRecording();
  for (const std::string& text : texts) {
    std::vector<RecordedMessage> changed = messages;
    for (const std::string& name : names) {
      changed.push_back(fileMessage("/config_file", name, text));
    }
    recordProject(dir / "p", changed);
    EXPECT_TRUE(this->unpack(readFile(dir / "p/" + kBagName)));
    fs::remove_all(dir / "p");
  }
}

}  // namespace morva::test
