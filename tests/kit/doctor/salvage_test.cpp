#include "kit/doctor/salvage.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kbag_msgs.pb.h"
#include "kit/doctor/examination.h"
#include "kit/doctor/sample_recording.h"
#include "morva/bag.h"
#include "platform/file.h"
#include "support/bag_builder.h"
#include "support/failing_file_calls.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;
namespace pb = protix::kbag_msgs;
using doctor::DeviceSource;
using doctor::SalvageResult;
using doctor::Verdict;
using testing::HasSubstr;
using testing::IsEmpty;

std::string deviceRecord(const std::string& name) {
  pb::DeviceInfo record;
  record.set_device_name(name);
  return record.SerializeAsString();
}

class SalvageTest : public testing::Test {
 protected:
  void SetUp() override {
    options_ = {.inPath = in_, .outPath = out_, .names = {}, .likePath = ""};
  }

  SalvageResult salvage(const std::string& bytes) {
    writeFile(in_, bytes);
    return doctor::salvage(options_, [](double) { return true; });
  }

  [[nodiscard]] std::size_t names() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(dir_.path()), fs::directory_iterator()));
  }

  /// The messages of the output are those of the sample but one.
  void expectAllBut(std::size_t missing, const std::vector<std::string>& topics) {
    MorvaBag bag;
    ASSERT_EQ(bag.open(out_, BagMode::kRead), 0);
    std::size_t count = 0;
    for (std::uint32_t id = 0; id < topics.size(); ++id) {
      const View view = bag.getView(topics[id], 0, 0);
      count += view.indexes.size();
      auto next = view.indexes.begin();
      for (std::size_t i = 0; i < sample_.messages.size(); ++i) {
        const SampleMessage& message = sample_.messages[i];
        if (message.topicId != id || i == missing) continue;
        ASSERT_NE(next, view.indexes.end());
        std::string payload;
        ASSERT_TRUE(bag.readMessage(*next, &payload));
        EXPECT_EQ(payload, message.payload);
        EXPECT_EQ(next->count, message.count);
        EXPECT_EQ(next->writeTime, message.timeUs);
        EXPECT_EQ(next->headerTimes[0], message.firstTimeUs);
        EXPECT_EQ(next->headerTimes[1], message.secondTimeUs);
        EXPECT_EQ(next->storedSize < next->rawSize, isStoredSmaller(message)) << i;
        ++next;
      }
    }
    EXPECT_EQ(count, sample_.messages.size() - (missing < sample_.messages.size() ? 1 : 0));
    EXPECT_EQ(doctor::examine(out_, [](double) { return true; }).verdict, Verdict::kSound);
  }

  static bool isStoredSmaller(const SampleMessage& message) {
    return message.end - message.begin - 52 < message.payload.size();
  }

  TempDir dir_;
  std::string in_ = dir_ / "in.kbag";
  std::string out_ = dir_ / "out.kbag";
  doctor::SalvageOptions options_;
  SampleRecording sample_ = makeSample({.compression = CompressionType::kLz4,
                                        .messages = 30,
                                        .privateData = deviceRecord("scanner")});
  std::string bytes_ = sample_.bytes;
};

constexpr std::size_t kNone = 1'000'000;

}  // namespace

TEST_F(SalvageTest, SoundRecordingIsCopiedMessageByMessage) {
  const SalvageResult result = salvage(bytes_);
  EXPECT_TRUE(result.isDone) << result.problem;
  EXPECT_EQ(result.account.verdict, Verdict::kSound);
  EXPECT_EQ(result.written, 30U);
  EXPECT_EQ(result.device, DeviceSource::kHeader);
  expectAllBut(kNone, sample_.topics);
  EXPECT_EQ(readFile(in_), bytes_);
}

TEST_F(SalvageTest, DamagedMessageAloneIsLeftOut) {
  bytes_[sample_.messages[7].begin + 50] ^= 1;
  const SalvageResult result = salvage(bytes_);
  EXPECT_TRUE(result.isDone) << result.problem;
  EXPECT_EQ(result.account.verdict, Verdict::kDamaged);
  expectAllBut(7, sample_.topics);
  EXPECT_EQ(readFile(in_), bytes_);
  EXPECT_EQ(names(), 2U);
}

TEST_F(SalvageTest, CutOffRecordingGetsItsIndex) {
  const SalvageResult result = salvage(unclosed(sample_).bytes);
  EXPECT_TRUE(result.isDone) << result.problem;
  expectAllBut(kNone, sample_.topics);
}

TEST_F(SalvageTest, DeviceRecordAndCompressionAreKept) {
  ASSERT_TRUE(salvage(bytes_).isDone);
  MorvaBag bag;
  ASSERT_EQ(bag.open(out_, BagMode::kRead), 0);
  EXPECT_EQ(bag.getDeviceInfo(nullptr).deviceName, "scanner");
  EXPECT_EQ(bag.compressionType, CompressionType::kLz4);
}

TEST_F(SalvageTest, LostNamesMustBeGiven) {
  bytes_[4096 + 30] ^= 1;
  SalvageResult result = salvage(bytes_);
  EXPECT_FALSE(result.isDone);
  EXPECT_THAT(result.problem, HasSubstr("--topics or --like"));
  EXPECT_EQ(names(), 1U);

  options_.names = {{0, "/imu_like"}, {1, "/renamed"}, {2, "/another topic"}};
  result = salvage(bytes_);
  EXPECT_TRUE(result.isDone) << result.problem;
  EXPECT_TRUE(result.areNamesGiven);
  expectAllBut(kNone, {"/imu_like", "/renamed", "/another topic"});
}

TEST_F(SalvageTest, TopicWithoutAGivenNameIsLeftOut) {
  bytes_[4096 + 30] ^= 1;
  options_.names = {{0, "/imu_like"}};
  const SalvageResult result = salvage(bytes_);
  EXPECT_TRUE(result.isDone) << result.problem;
  EXPECT_EQ(result.written + result.unnamed, 30U);
  EXPECT_GT(result.unnamed, 0U);
  options_.names = {{77, "/none of them"}};
  fs::remove(out_);
  EXPECT_THAT(salvage(bytes_).problem, HasSubstr("has a name"));
  EXPECT_EQ(names(), 1U);
}

TEST_F(SalvageTest, GivenNamesDoNotReplaceItsOwn) {
  options_.names = {{0, "/wrong"}};
  const SalvageResult result = salvage(bytes_);
  EXPECT_FALSE(result.areNamesGiven);
  expectAllBut(kNone, sample_.topics);
}

TEST_F(SalvageTest, LostHeaderAndNamesAreTakenFromAnotherRecording) {
  options_.likePath = dir_ / "like.kbag";
  writeFile(options_.likePath,
            makeSample({.seed = 5, .messages = 3, .privateData = deviceRecord("other")}).bytes);
  bytes_.replace(0, 4200, std::string(4200, '\0'));
  const SalvageResult result = salvage(bytes_);
  EXPECT_TRUE(result.isDone) << result.problem;
  EXPECT_EQ(result.device, DeviceSource::kOtherRecording);
  expectAllBut(kNone, sample_.topics);
  MorvaBag bag;
  ASSERT_EQ(bag.open(out_, BagMode::kRead), 0);
  EXPECT_EQ(bag.getDeviceInfo(nullptr).deviceName, "other");
  EXPECT_EQ(bag.compressionType, CompressionType::kLz4);  // found out from the chunks
}

TEST_F(SalvageTest, UnusableOtherRecordingIsAnError) {
  options_.likePath = dir_ / "missing";
  EXPECT_THAT(salvage(bytes_).problem, HasSubstr("missing cannot be read"));
  EXPECT_EQ(names(), 1U);
}

TEST_F(SalvageTest, DamagedHeaderStillTellsTheDevice) {
  bytes_[3000] ^= 1;  // the filler, which the checksum covers
  const SalvageResult result = salvage(bytes_);
  EXPECT_EQ(result.device, DeviceSource::kDamagedHeader);
  expectAllBut(kNone, sample_.topics);
}

TEST_F(SalvageTest, SideFileKeepsTheHeader) {
  writeFile(in_, bytes_);
  ASSERT_EQ(MorvaBag::reindex(in_), 0);
  bytes_.replace(0, 4096, std::string(4096, '\0'));
  const SalvageResult result = salvage(bytes_);
  EXPECT_EQ(result.device, DeviceSource::kSideFile);
  expectAllBut(kNone, sample_.topics);
}

TEST_F(SalvageTest, NothingIsMadeOfNothing) {
  for (const std::string& bytes :
       {std::string(), std::string(9000, 'x'), bytes_.substr(0, sample_.messages[0].end - 1)}) {
    const SalvageResult result = salvage(bytes);
    EXPECT_FALSE(result.isDone);
    EXPECT_THAT(result.problem, HasSubstr("no message can be read"));
    EXPECT_EQ(result.account.verdict, Verdict::kUnreadable);
    EXPECT_EQ(names(), 1U);
  }
}

TEST_F(SalvageTest, SoundRecordingWithoutMessagesIsCopied) {
  const SalvageResult result = salvage(makeSample({.messages = 0}).bytes);
  EXPECT_TRUE(result.isDone) << result.problem;
  EXPECT_EQ(doctor::examine(out_, [](double) { return true; }).verdict, Verdict::kSound);
}

TEST_F(SalvageTest, ExistingOutputIsReplacedOnlyByForce) {
  writeFile(out_, "mine");
  EXPECT_THAT(salvage(bytes_).problem, HasSubstr("out.kbag exists (--force replaces it)"));
  EXPECT_EQ(readFile(out_), "mine");
  options_.force = true;
  EXPECT_TRUE(salvage(bytes_).isDone);
  expectAllBut(kNone, sample_.topics);
  EXPECT_EQ(names(), 2U);
}

TEST_F(SalvageTest, LinkIsReplacedAndNotFollowed) {
  writeFile(dir_ / "elsewhere", "mine");
  fs::create_symlink(dir_ / "elsewhere", out_);
  EXPECT_THAT(salvage(bytes_).problem, HasSubstr("exists"));
  options_.force = true;
  EXPECT_TRUE(salvage(bytes_).isDone);
  EXPECT_EQ(readFile(dir_ / "elsewhere"), "mine");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(out_)));
}

TEST_F(SalvageTest, OldSideFileOfTheOutputIsInTheWay) {
  writeFile(out_ + ".index", "stale");
  EXPECT_THAT(salvage(bytes_).problem, HasSubstr("out.kbag.index exists"));
  EXPECT_FALSE(osmik::File::exists(out_));
  options_.force = true;
  EXPECT_TRUE(salvage(bytes_).isDone);
  EXPECT_FALSE(osmik::File::exists(out_ + ".index"));
}

TEST_F(SalvageTest, InputIsNeverTheOutput) {
  options_.force = true;
  fs::create_hard_link((writeFile(in_, bytes_), in_), dir_ / "same.kbag");
  writeFile(in_ + ".index", "side");
  for (const std::string& out : {in_, dir_ / "same.kbag", dir_ / "./in.kbag", in_ + ".index"}) {
    options_.outPath = out;
    EXPECT_THAT(salvage(bytes_).problem, HasSubstr("is the recording itself")) << out;
  }
  EXPECT_EQ(readFile(in_), bytes_);
  EXPECT_EQ(readFile(in_ + ".index"), "side");
}

TEST_F(SalvageTest, FolderIsNoOutput) {
  options_.force = true;
  options_.outPath = dir_.path();
  EXPECT_THAT(salvage(bytes_).problem, HasSubstr("is a folder"));
  options_.outPath = dir_ / "missing/out.kbag";
  EXPECT_THAT(salvage(bytes_).problem, HasSubstr("it cannot be created"));
}

TEST_F(SalvageTest, AnyFailureToWriteLeavesNothing) {
  using Call = FailingFileCalls::Call;
  writeFile(in_, bytes_);
  for (const Call call : {Call::kOpen, Call::kPwrite, Call::kFsync, Call::kClose, Call::kPread}) {
    int failures = 0;
    for (int nth = 1;; ++nth) {
      SCOPED_TRACE(std::to_string(static_cast<int>(call)) + " " + std::to_string(nth));
      int calls = 0;
      SalvageResult result;
      {
        FailingFileCalls disk;
        disk.onlyFilesThatEndIn(".tmp");
        disk.fail(call, nth, 1);
        result = doctor::salvage(options_, [](double) { return true; });
        calls = disk.count(call);
      }
      if (result.isDone) {
        // A file that was only read may fail to close, and a read at its end to tell that it ends.
        expectAllBut(kNone, sample_.topics);
        EXPECT_TRUE(calls < nth || call == Call::kClose || call == Call::kPread);
        fs::remove(out_);
      } else {
        EXPECT_THAT(result.problem, testing::Not(IsEmpty()));
        ++failures;
      }
      EXPECT_EQ(names(), 1U);
      if (calls < nth) break;
    }
    EXPECT_GT(failures, 0) << static_cast<int>(call);
  }
}

TEST_F(SalvageTest, InterruptionLeavesNothing) {
  writeFile(in_, bytes_);
  int calls = 0;
  EXPECT_TRUE(doctor::salvage(options_, [&](double) { return ++calls > 0; }).isDone);
  fs::remove(out_);
  for (int stop = 1; stop < calls; stop += 5) {
    int left = stop;
    const SalvageResult result = doctor::salvage(options_, [&](double) { return left-- > 0; });
    EXPECT_FALSE(result.isDone) << stop;
    EXPECT_TRUE(result.isInterrupted) << stop;
    EXPECT_EQ(names(), 1U) << stop;
  }
}

TEST_F(SalvageTest, NameOfSixtyCharactersIsCut) {
  BagBuilder builder;
  builder.topic(0, std::string(60, 'n')).message({.topicId = 0, .stored = "x"});
  const SalvageResult result = salvage(builder.build());
  EXPECT_TRUE(result.isDone) << result.problem;
}

}  // namespace morva::test
