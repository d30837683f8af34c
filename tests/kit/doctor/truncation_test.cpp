// A recording of three topics, cut off at every byte: doctor, check, reindex, info and export find
// the messages whose chunks are whole, and no others.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "bag/bag_bytes.h"
#include "export/frame_exporter.h"
#include "kbag_msgs.pb.h"
#include "kit/doctor/examination.h"
#include "morva/bag.h"
#include "platform/file.h"
#include "support/recording_builder.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;
namespace pb = protix::kbag_msgs;
using doctor::Account;
using doctor::Proof;
using doctor::Verdict;

constexpr std::int64_t kStartUs = 1'700'000'000'000'000;

template <typename Array, typename Fill>
Array oneSample(std::int64_t number, Fill fill) {
  Array array;
  auto* const msg = array.add_msgs();
  msg->mutable_header()->set_timestamp(kStartUs + 1000 * number);
  msg->mutable_header()->set_seq(static_cast<std::uint32_t>(number));
  fill(msg);
  return array;
}

/// 15 messages of three topics that export turns into a row or a line each.
std::string makeRecording(const std::string& path, CompressionType compression) {
  RecordingBuilder recording(compression);
  for (std::int64_t i = 0; i < 15; i += 3) {
    recording.add("/imu", oneSample<pb::ImuMsgArray>(
                              i, [&](pb::ImuMsg* msg) { msg->set_accel_x(1000 + i); }));
    recording.add("/magnetic", oneSample<pb::MagneticMsgArray>(
                                   i + 1, [](pb::MagneticMsg* msg) { msg->set_mag_y(-44); }));
    recording.add("/raw_gnss_log", oneSample<pb::LogMsgArray>(i + 2, [&](pb::LogMsg* msg) {
                    msg->set_data("$GPTXT," + std::to_string(i) + std::string(90, '*') + "\n");
                  }));
  }
  recording.write(path);
  return readFile(path);
}

std::size_t linesOf(const std::string& path) {
  if (!osmik::File::exists(path)) return 0;
  const std::string text = readFile(path);
  return static_cast<std::size_t>(std::ranges::count(text, '\n'));
}

class Truncation : public testing::TestWithParam<CompressionType> {
 protected:
  void SetUp() override {
    whole_ = makeRecording(path_, GetParam());
    ASSERT_EQ(whole_.size(), 8192U);
    for (const RawChunk& chunk : walkBytes(whole_)) {
      if (chunk.type == 1) messageEnds_.push_back(chunk.end());
      if (chunk.type == 0) dataStart_ = chunk.end();
      if (chunk.type == 255) indexEnd_ = chunk.end();
    }
    ASSERT_EQ(messageEnds_.size(), 15U);
    fs::create_directories(dir_ / "out/csv");
  }

  /// Messages whose chunks lie before a cut whole.
  [[nodiscard]] std::size_t wholeAt(std::size_t cut) const {
    return static_cast<std::size_t>(
        std::ranges::count_if(messageEnds_, [cut](std::size_t end) { return end <= cut; }));
  }

  void tryDoctor(std::size_t cut) {
    const Account account = doctor::examine(path_, [](double) { return true; });
    ASSERT_EQ(account.messages.size(), wholeAt(cut));
    for (std::size_t i = 0; i < account.messages.size(); ++i) {
      EXPECT_EQ(account.messages[i].header.headerTimes[0],
                kStartUs + 1000 * static_cast<std::int64_t>(i));
      EXPECT_EQ(account.messages[i].proof,
                cut >= indexEnd_ ? Proof::kConfirmed : Proof::kUnverified);
    }
    Verdict expected = wholeAt(cut) > 0 ? Verdict::kDamaged : Verdict::kUnreadable;
    if (cut == whole_.size()) expected = Verdict::kSound;
    EXPECT_EQ(account.verdict, expected);
    EXPECT_EQ(account.damage.empty(), cut == whole_.size());
  }

  void tryCheckAndReindex(std::size_t cut) {
    EXPECT_EQ(MorvaBag::checkAll(path_) == 0, cut >= indexEnd_);
    EXPECT_EQ(MorvaBag::reindex(path_) == 0, cut >= dataStart_);
  }

  void tryInfoAndExport(std::size_t cut) {
    MorvaBag bag;
    const int code = bag.open(path_, BagMode::kRead);
    EXPECT_EQ(code == 0, cut >= dataStart_);
    if (code != 0) return;
    EXPECT_EQ(bag.getInfo().chunkCount, wholeAt(cut));
    std::size_t rows = 0;
    FrameExporter exporter(&bag, dir_ / "out");
    for (const TopicInfo& topic : bag.getInfo().topics) {
      const View view = bag.getView(topic.name, 0, 0);
      EXPECT_TRUE(exporter.exportFrame(topic.name, view));
      const std::string file = dir_ / ("out/" + FrameExporter::frameFile(topic.name));
      const bool isTable = file.ends_with(".csv");
      rows += linesOf(file) - (isTable ? 1 : 0);
      fs::remove(file);
    }
    EXPECT_EQ(rows, wholeAt(cut));
  }

  TempDir dir_;
  std::string path_ = dir_ / "x.kbag";
  std::string whole_;
  std::vector<std::size_t> messageEnds_;
  std::size_t dataStart_ = 0, indexEnd_ = 0;
};

TEST_P(Truncation, AtEveryByteTheWholeMessagesAreFound) {
  for (std::size_t cut = 0; cut <= whole_.size(); ++cut) {
    SCOPED_TRACE("cut at " + std::to_string(cut));
    writeFile(path_, whole_.substr(0, cut));
    tryDoctor(cut);
    tryCheckAndReindex(cut);
    tryInfoAndExport(cut);
    fs::remove(path_ + ".index");
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Compressions, Truncation,
                         testing::Values(CompressionType::kNone, CompressionType::kLz4),
                         [](const auto& test) {
                           return test.param == CompressionType::kNone ? "Plain" : "Lz4";
                         });

}  // namespace
}  // namespace morva::test
