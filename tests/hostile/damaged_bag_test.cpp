// Whatever bytes a bag holds: nothing crashes, no memory is taken that the file does not justify,
// and nothing is written outside of the output directory.
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "export/frame_exporter.h"
#include "hostile/allocation_watch.h"
#include "hostile/bag_damage.h"
#include "hostile/every_topic.h"
#include "morva/bag.h"
#include "platform/byte_order.h"
#include "platform/ignore_result.h"
#include "storage/bag_layout.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

/// The write buffer of an export, and as much again for all else.
constexpr std::size_t kLargestAllocation = 2UL * 16 * 1024 * 1024;

/// A folder with a bag in it, on which everything that reads a bag is tried.
class Bench {
 public:
  Bench() {
    for (const char* sub : {"csv", "config", "project_data", "h264", "jpeg/camera_right"}) {
      fs::create_directories(out_ + "/" + sub);
    }
  }

  /// Results do not matter: coming back does.
  void tryAll(const std::string& bytes) {
    writeFile(bag_, bytes);
    ignoreResult(MorvaBag::checkAll(bag_));
    read();
    ignoreResult(MorvaBag::reindex(bag_));
    read();
    fs::remove(bag_ + ".index");
  }

  [[nodiscard]] std::set<std::string> filesOutsideOfOut() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_.path())) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }

 private:
  void read() {
    MorvaBag bag;
    if (bag.open(bag_, BagMode::kRead) != 0) return;
    std::string text;
    ignoreResult(bag.getDeviceInfo(&text));
    FrameExporter exporter(&bag, out_);
    for (const TopicInfo& topic : bag.getInfo().topics) {
      const MorvaBag::View view = bag.getView(topic.name, 0, -1);
      ignoreResult(exporter.exportFrame(topic.name, view));
      ignoreResult(exporter.exportImage(topic.name, view, "jpeg"));
    }
    bag.close();
  }

  TempDir dir_;
  std::string bag_ = dir_ / "x.kbag";
  std::string out_ = dir_ / "out";
};

/// Offsets worth changing: the header's fields, some of its filler, and all that comes after it but
/// the padding.
std::vector<std::size_t> interestingOffsets(const std::string& bytes, CompressionType compression) {
  // The framing is the same in every bag: those with a codec are sampled.
  const std::size_t step = compression == CompressionType::kNone ? 1 : 7;
  std::vector<std::size_t> offsets;
  for (std::size_t at = 0; at < layout::kHeaderBytes; at += at < 40 ? 1 : 509)
    offsets.push_back(at);
  const std::size_t end = bytes.find_last_not_of(' ') + 3;
  for (std::size_t at = layout::kHeaderBytes; at < end && at < bytes.size(); at += step) {
    offsets.push_back(at);
  }
  return offsets;
}

void storeWord(std::string* bytes, std::size_t at, std::uint32_t word) {
  if (at + sizeof word <= bytes->size()) storeLe(bytes->data() + at, word);
}

}  // namespace

class HostileBag : public testing::TestWithParam<CompressionType> {
 protected:
  void SetUp() override { resetLargestAllocation(); }
  void TearDown() override {
    EXPECT_LT(largestAllocation(), kLargestAllocation);
    EXPECT_EQ(bench_.filesOutsideOfOut(), (std::set<std::string>{"out", "x.kbag"}));
  }

  const std::string whole_ = bagOfEveryTopic(GetParam());
  Bench bench_;
};

TEST_P(HostileBag, FlippedBitsAreSurvived) {
  std::size_t count = 0;
  for (const std::size_t at : interestingOffsets(whole_, GetParam())) {
    std::string bytes = whole_;
    bytes[at] = static_cast<char>(bytes[at] ^ (1 << (at % 8)));
    bench_.tryAll(bytes);
    ++count;
  }
  EXPECT_GT(count, 200U);
}

TEST_P(HostileBag, LyingWordsBehindRightChecksumsAreSurvived) {
  const std::vector<std::uint32_t> words = {0U, 0xFFFFFFFFU, 0x7FFFFFFFU, 0x01000000U};
  std::size_t turn = 0;
  for (const std::size_t at : interestingOffsets(whole_, GetParam())) {
    std::string bytes = whole_;
    storeWord(&bytes, at, words[turn++ % words.size()]);
    repairChecksums(&bytes);
    bench_.tryAll(bytes);
  }
}

TEST_P(HostileBag, FileCutAtAnyLengthIsSurvived) {
  for (std::size_t length = 0; length < whole_.size(); length += length < 4000 ? 499 : 11) {
    bench_.tryAll(whole_.substr(0, length));
  }
}

INSTANTIATE_TEST_SUITE_P(Compressions, HostileBag,
                         testing::Values(CompressionType::kNone, CompressionType::kLz4,
                                         CompressionType::kZstd),
                         [](const testing::TestParamInfo<CompressionType>& parameter) {
                           return "codec" + std::to_string(static_cast<int>(parameter.param));
                         });

}  // namespace morva::test
