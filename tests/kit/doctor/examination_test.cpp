#include "kit/doctor/examination.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kbag_msgs.pb.h"
#include "kit/doctor/sample_recording.h"
#include "morva/bag.h"
#include "platform/file.h"
#include "storage/bag_layout.h"
#include "support/bag_builder.h"
#include "support/failing_file_calls.h"
#include "support/recording_builder.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace pb = protix::kbag_msgs;
using doctor::Account;
using doctor::Damage;
using doctor::HeaderState;
using doctor::IndexState;
using doctor::Part;
using doctor::Proof;
using doctor::SideState;
using doctor::Verdict;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ExaminationTest : public testing::Test {
 protected:
  Account examine(const std::string& bytes) {
    writeFile(path_, bytes);
    return doctor::examine(path_, [](double) { return true; });
  }

  static std::size_t count(const Account& account, Proof proof) {
    return static_cast<std::size_t>(
        std::ranges::count(account.messages, proof, [](const auto& m) { return m.proof; }));
  }

  static std::vector<Part> partsOf(const Account& account) {
    std::vector<Part> parts;
    for (const Damage& damage : account.damage) parts.push_back(damage.part);
    return parts;
  }

  [[nodiscard]] std::size_t indexOffset() const {
    return numberAt<std::uint64_t>(sample_.bytes, 24);
  }

  TempDir dir_;
  std::string path_ = dir_ / "x.kbag";
  SampleRecording sample_ = makeSample({.messages = 12, .maxPayloadBytes = 300});
  std::string bytes_ = sample_.bytes;
};

}  // namespace

TEST_F(ExaminationTest, SoundRecordingIsSound) {
  for (const auto compression :
       {CompressionType::kNone, CompressionType::kLz4, CompressionType::kZstd}) {
    const Account account = examine(makeSample({.compression = compression}).bytes);
    EXPECT_EQ(account.verdict, Verdict::kSound);
    EXPECT_EQ(account.headerState, HeaderState::kSound);
    EXPECT_EQ(account.indexState, IndexState::kSound);
    EXPECT_EQ(account.sideState, SideState::kNone);
    EXPECT_EQ(account.indexEntries, 60U);
    EXPECT_EQ(count(account, Proof::kConfirmed), 60U);
    EXPECT_THAT(account.damage, IsEmpty());
    EXPECT_EQ(account.topicNames.at(1), "/free");
  }
}

TEST_F(ExaminationTest, SoundRecordingWithoutMessagesIsSound) {
  RecordingBuilder recording;
  recording.addTopic("/imu").write(path_);
  EXPECT_EQ(doctor::examine(path_, [](double) { return true; }).verdict, Verdict::kSound);
}

TEST_F(ExaminationTest, MissingAndForeignFilesAreUnreadable) {
  const Account missing = doctor::examine(dir_ / "missing", [](double) { return true; });
  EXPECT_EQ(missing.verdict, Verdict::kUnreadable);
  EXPECT_EQ(missing.problem, "No such file or directory");
  EXPECT_EQ(doctor::examine(dir_.path(), [](double) { return true; }).problem, "Is a directory");
  for (const std::string& content : {std::string(), std::string("KBAG"), std::string(9000, 'x')}) {
    const Account account = examine(content);
    EXPECT_EQ(account.verdict, Verdict::kUnreadable);
    EXPECT_EQ(account.headerState, HeaderState::kMissing);
    EXPECT_THAT(account.problem, IsEmpty());
  }
}

TEST_F(ExaminationTest, DamagedPayloadIsLostByTheIndexAccount) {
  const SampleMessage& hit = sample_.messages[5];
  bytes_[hit.begin + 50] ^= 1;
  const Account account = examine(bytes_);
  EXPECT_EQ(account.verdict, Verdict::kDamaged);
  EXPECT_EQ(count(account, Proof::kConfirmed), 11U);
  ASSERT_THAT(account.damage, SizeIs(1));
  const Damage& damage = account.damage[0];
  EXPECT_EQ(damage.part, Part::kMessages);
  EXPECT_EQ(damage.range.begin, hit.begin);
  EXPECT_EQ(damage.range.end, hit.end);
  EXPECT_TRUE(damage.isLostKnown);
  EXPECT_EQ(damage.lost.at(static_cast<std::int32_t>(hit.topicId)), 1U);
  EXPECT_EQ(damage.firstLostUs, hit.firstTimeUs);
  EXPECT_EQ(damage.before->timeUs, sample_.messages[4].firstTimeUs);
  EXPECT_EQ(damage.behind->timeUs, sample_.messages[6].firstTimeUs);
  ASSERT_THAT(account.lost, SizeIs(1));
  EXPECT_EQ(account.lost[0].writtenAt, hit.begin);
  EXPECT_EQ(account.pointNowhere, 1U);
}

TEST_F(ExaminationTest, EachByteOfAMessagesHeaderIsRestoredFromTheIndex) {
  const SampleMessage& hit = sample_.messages[5];
  for (std::size_t i = 0; i < 48; ++i) {
    std::string bytes = bytes_;
    bytes[hit.begin + i] ^= 0x10;
    const Account account = examine(bytes);
    ASSERT_THAT(account.messages, SizeIs(12)) << i;
    EXPECT_EQ(account.messages[5].proof, Proof::kRestored) << i;
    EXPECT_EQ(account.messages[5].header.headerTimes[0], hit.firstTimeUs) << i;
    EXPECT_EQ(account.messages[5].header.count, hit.count) << i;
    EXPECT_THAT(partsOf(account), ElementsAre(Part::kChunkHeader)) << i;
  }
}

TEST_F(ExaminationTest, WithoutAnIndexADamagedHeaderIsUnverified) {
  const SampleRecording sample = unclosed(sample_);
  std::string bytes = sample.bytes;
  bytes[sample.messages[5].begin + 20] ^= 1;  // the count word
  const Account account = examine(bytes);
  EXPECT_EQ(account.indexState, IndexState::kNotClosed);
  EXPECT_FALSE(account.hasIndex);
  EXPECT_EQ(count(account, Proof::kUnverified), 12U);
  EXPECT_EQ(account.verdict, Verdict::kDamaged);
}

TEST_F(ExaminationTest, WithoutAnIndexTornChunksAreTheAccountOfWhatIsLost) {
  const SampleRecording sample = unclosed(sample_);
  std::string bytes = sample.bytes;
  for (const std::size_t i : {3U, 4U}) bytes[sample.messages[i].begin + 50] ^= 1;
  bytes.resize(bytes.size() - 1);  // cuts the last one off
  const Account account = examine(bytes);
  EXPECT_THAT(account.messages, SizeIs(9));
  ASSERT_THAT(account.damage, SizeIs(2));
  std::uint64_t lost = 0;
  for (const Damage& damage : account.damage) {
    EXPECT_FALSE(damage.isLostKnown);
    for (const auto& [id, messages] : damage.lost) lost += messages;
  }
  EXPECT_EQ(lost, 3U);
}

TEST_F(ExaminationTest, CutOutMessagesLeaveAPlaceOfNoLength) {
  const SampleMessage& first = sample_.messages[3];
  const SampleMessage& last = sample_.messages[5];
  bytes_.erase(first.begin, last.end - first.begin);
  const Account account = examine(bytes_);
  EXPECT_EQ(account.indexState, IndexState::kMoved);
  EXPECT_EQ(count(account, Proof::kConfirmed), 9U);
  EXPECT_EQ(account.moved, 6U);
  EXPECT_EQ(account.pointNowhere, 9U);
  ASSERT_THAT(account.damage, SizeIs(1));
  EXPECT_EQ(account.damage[0].range.begin, first.begin);
  EXPECT_EQ(account.damage[0].range.end, first.begin);
  EXPECT_EQ(account.damage[0].firstLostUs, first.firstTimeUs);
  EXPECT_EQ(account.damage[0].lastLostUs, last.firstTimeUs);
}

TEST_F(ExaminationTest, RepeatedChunksCountOnce) {
  const SampleMessage& first = sample_.messages[3];
  const std::string copy = bytes_.substr(first.begin, sample_.messages[5].end - first.begin);
  bytes_.insert(sample_.messages[8].begin, copy);
  const Account account = examine(bytes_);
  EXPECT_EQ(count(account, Proof::kConfirmed), 12U);
  EXPECT_THAT(account.messages, SizeIs(12));
  EXPECT_EQ(account.repeated, 3U);
  EXPECT_THAT(partsOf(account), ElementsAre(Part::kRepetition));
}

TEST_F(ExaminationTest, ZerosAreNamed) {
  const SampleMessage& hit = sample_.messages[5];
  bytes_.replace(hit.begin, hit.end - hit.begin, std::string(hit.end - hit.begin, '\0'));
  const Account account = examine(bytes_);
  ASSERT_THAT(account.damage, SizeIs(1));
  EXPECT_TRUE(account.damage[0].isZeros);
}

TEST_F(ExaminationTest, MessageThatTheIndexDoesNotKnowIsUnverified) {
  BagBuilder builder;
  builder.topic(0, "/a");
  for (int i = 0; i < 3; ++i) builder.message({.topicId = 0, .stored = std::to_string(i)});
  std::string bytes = builder.build();
  const std::size_t at = builder.chunkOffset(3);
  const std::string extra = messageChunk({.topicId = 0, .stored = "extra"});
  bytes.insert(at, extra);
  patch<std::uint64_t>(&bytes, 24, at + extra.size());
  bytes.resize(bytes.size() - extra.size());  // of the padding
  fixHeaderCrc(&bytes);
  const Account account = examine(bytes);
  EXPECT_EQ(count(account, Proof::kConfirmed), 3U);
  EXPECT_EQ(count(account, Proof::kUnverified), 1U);
  EXPECT_EQ(account.notInIndex, 1U);
  EXPECT_EQ(account.verdict, Verdict::kDamaged);
  EXPECT_THAT(account.damage, IsEmpty());
}

TEST_F(ExaminationTest, IndexEntriesThatPointNowhereAreCounted) {
  BagBuilder builder;
  builder.topic(0, "/a").message({.topicId = 0, .stored = "one"});
  std::string bytes = builder.build();
  const std::size_t at = builder.chunkOffset(1);
  const BuiltMessage message{.topicId = 0, .stored = "one"};
  const std::string data =
      indexBytes({{.topicId = 0,
                   .offsets = {builder.chunkOffset(0), 1U << 30U, ~std::uint64_t{0}},
                   .messages = {message, message, {.topicId = 0, .stored = "beyond"}}}});
  bytes = bytes.substr(0, at) + chunkBytes(255, timedChunkHeader(data.size()), data);
  bytes.resize((bytes.size() + 4095) / 4096 * 4096, ' ');
  const Account account = examine(bytes);
  EXPECT_EQ(count(account, Proof::kConfirmed), 1U);
  EXPECT_EQ(account.pointNowhere, 2U);
  EXPECT_THAT(account.lost, SizeIs(2));
}

TEST_F(ExaminationTest, LostHeaderLeavesEverythingElse) {
  for (const auto compression :
       {CompressionType::kNone, CompressionType::kLz4, CompressionType::kZstd}) {
    std::string bytes = makeSample({.compression = compression}).bytes;
    bytes.replace(0, 4096, std::string(4096, '\0'));
    const Account account = examine(bytes);
    EXPECT_EQ(account.headerState, HeaderState::kMissing);
    EXPECT_EQ(count(account, Proof::kConfirmed), 60U);
    EXPECT_EQ(account.compression, static_cast<std::uint8_t>(compression));
    EXPECT_TRUE(account.isCompressionGuessed);
    EXPECT_THAT(partsOf(account), ElementsAre(Part::kFileHeader));
  }
}

TEST_F(ExaminationTest, CodecOfAnIndexThatAloneIsCompressedIsFoundOut) {
  for (const auto compression : {CompressionType::kLz4, CompressionType::kZstd}) {
    RecordingBuilder recording(compression);
    for (int i = 0; i < 20; ++i) recording.addPayload("/free", std::to_string(i));
    std::string bytes =
        readFile(recording.write(dir_ / std::to_string(static_cast<int>(compression))));
    bytes.replace(0, 4096 + 20, std::string(4096 + 20, '\0'));  // header and topic names
    const Account account = examine(bytes);
    EXPECT_EQ(count(account, Proof::kConfirmed), 20U);
    EXPECT_EQ(account.compression, static_cast<std::uint8_t>(compression));
  }
}

TEST_F(ExaminationTest, CutOutPieceOfTheHeaderMovesEverything) {
  bytes_.erase(200, 77);
  const Account account = examine(bytes_);
  EXPECT_EQ(account.headerState, HeaderState::kDamaged);
  EXPECT_TRUE(account.isDefinitionSound);
  EXPECT_EQ(account.moved, 12U);
  EXPECT_EQ(count(account, Proof::kConfirmed), 12U);
}

TEST_F(ExaminationTest, LostDefinitionLeavesTheMessages) {
  bytes_[4096 + 30] ^= 1;
  const Account account = examine(bytes_);
  EXPECT_FALSE(account.isDefinitionSound);
  EXPECT_EQ(count(account, Proof::kConfirmed), 12U);
  EXPECT_THAT(partsOf(account), ElementsAre(Part::kDefinition));
  EXPECT_EQ(account.damage[0].range.begin, 4096U);
  EXPECT_EQ(account.damage[0].range.end, sample_.messages[0].begin);
}

TEST_F(ExaminationTest, DamagedIndexLeavesMessagesUnverified) {
  bytes_[indexOffset() + 40] ^= 1;
  const Account account = examine(bytes_);
  EXPECT_EQ(account.indexState, IndexState::kDamaged);
  EXPECT_EQ(count(account, Proof::kUnverified), 12U);
  EXPECT_THAT(partsOf(account), ElementsAre(Part::kIndex));
}

TEST_F(ExaminationTest, SideFileStandsInForALostIndex) {
  writeFile(path_, unclosed(sample_).bytes);
  ASSERT_EQ(MorvaBag::reindex(path_), 0);
  const Account account = doctor::examine(path_, [](double) { return true; });
  EXPECT_EQ(account.sideState, SideState::kMatches);
  EXPECT_EQ(account.indexState, IndexState::kNotClosed);
  EXPECT_EQ(account.sideEntries, 12U);
  EXPECT_EQ(count(account, Proof::kConfirmed), 12U);
  EXPECT_EQ(account.verdict, Verdict::kDamaged);
}

TEST_F(ExaminationTest, SideFileBesideASoundRecordingIsFine) {
  writeFile(path_, bytes_);
  ASSERT_EQ(MorvaBag::reindex(path_), 0);
  const Account account = doctor::examine(path_, [](double) { return true; });
  EXPECT_EQ(account.sideState, SideState::kMatches);
  EXPECT_EQ(account.verdict, Verdict::kSound);
}

TEST_F(ExaminationTest, MessageBehindTheIndexThatNamesItIsNotSound) {
  BuiltMessage first;
  BuiltMessage second;
  first.stored = "one";
  second.stored = "another";
  BagBuilder builder;
  std::string bag = builder.topic(0, "/free").message(first).buildUnclosed();
  const std::size_t indexOffset = bag.size();
  BuiltIndex both;
  both.countSum = 2;
  both.rawSizeSum = first.stored.size() + second.stored.size();
  both.offsets = {builder.chunkOffset(0), indexOffset + 200};
  both.messages = {first, second};
  const auto indexChunk = [&both] {
    const std::string data = indexBytes({both});
    return chunkBytes(255, timedChunkHeader(data.size()), data);
  };
  both.offsets[1] = indexOffset + indexChunk().size();
  patch<std::uint64_t>(&bag, layout::kDataStartOffset, builder.dataStart());
  patch<std::uint64_t>(&bag, layout::kIndexChunkOffsetOffset, indexOffset);
  fixHeaderCrc(&bag);

  const Account account = examine(bag + indexChunk() + messageChunk(second));
  EXPECT_EQ(account.indexState, IndexState::kSound);
  EXPECT_EQ(count(account, Proof::kConfirmed), 2U);
  EXPECT_EQ(account.verdict, Verdict::kDamaged);
  EXPECT_THAT(partsOf(account), ElementsAre(Part::kPadding));
}

TEST_F(ExaminationTest, SideFileOfAnotherRecordingIsNoneOfItsOwn) {
  SampleRecording other = makeSample({.seed = 2, .messages = 5});
  writeFile(path_, other.bytes);
  ASSERT_EQ(MorvaBag::reindex(path_), 0);
  const Account account = examine(bytes_);
  EXPECT_EQ(account.sideState, SideState::kOther);
  EXPECT_EQ(count(account, Proof::kConfirmed), 12U);
  EXPECT_EQ(account.verdict, Verdict::kDamaged);
}

TEST_F(ExaminationTest, DamagedSideFileIsNamed) {
  writeFile(path_, bytes_);
  ASSERT_EQ(MorvaBag::reindex(path_), 0);
  std::string side = readFile(path_ + ".index");
  side[4096 + 40] ^= 1;
  writeFile(path_ + ".index", side);
  const Account account = doctor::examine(path_, [](double) { return true; });
  EXPECT_EQ(account.sideState, SideState::kDamaged);
  EXPECT_EQ(account.verdict, Verdict::kDamaged);
}

TEST_F(ExaminationTest, PaddingIsLookedAtAndSoIsWhatFollows) {
  std::string changed = bytes_;
  changed.back() = 'x';
  EXPECT_THAT(partsOf(examine(changed)), ElementsAre(Part::kPadding));
  const Account longer = examine(bytes_ + "more");
  EXPECT_THAT(partsOf(longer), ElementsAre(Part::kBehindEnd));
  EXPECT_EQ(longer.verdict, Verdict::kDamaged);
  const Account shorter = examine(bytes_.substr(0, bytes_.size() - 1));
  EXPECT_THAT(partsOf(shorter), ElementsAre(Part::kPadding));
  EXPECT_EQ(count(shorter, Proof::kConfirmed), 12U);
}

TEST_F(ExaminationTest, PayloadThatIsNoMessageOfItsTopicIsCounted) {
  pb::ImuMsgArray imu;
  imu.add_msgs()->set_accel_x(5);
  RecordingBuilder recording;
  recording.add("/imu", imu).addPayload("/imu", "\xFF\xFF").addPayload("/free", "\xFF\xFF");
  recording.write(path_);
  const Account account = doctor::examine(path_, [](double) { return true; });
  EXPECT_EQ(account.topics.at(0).undecodable, 1U);
  EXPECT_EQ(account.topics.at(1).undecodable, 0U);
  EXPECT_EQ(account.verdict, Verdict::kDamaged);
  EXPECT_THAT(account.damage, IsEmpty());
}

TEST_F(ExaminationTest, PayloadThatCannotBeDecompressedIsNotRead) {
  BagBuilder builder;
  builder.header.compression = 2;
  builder.topic(0, "/a").message({.topicId = 0, .stored = "\xF0", .rawSize = 100});
  builder.message({.topicId = 0, .stored = "plain"});
  const Account account = examine(builder.build());
  EXPECT_EQ(account.topics.at(0).unrestorable, 1U);
  EXPECT_THAT(account.messages, SizeIs(1));
  EXPECT_EQ(account.verdict, Verdict::kDamaged);
}

TEST_F(ExaminationTest, MessageOfATopicThatIsNotDefinedIsSeen) {
  BagBuilder builder;
  builder.topic(0, "/a").message({.topicId = 0, .stored = "x"});
  const std::string bytes =
      builder.buildUnclosed() + messageChunk({.topicId = 9, .stored = "stray"});
  const Account account = examine(bytes);
  EXPECT_EQ(account.topics.at(9).unverified, 1U);
  EXPECT_EQ(account.topics.at(9).name, "");
}

TEST_F(ExaminationTest, RecordingThatAMessageCarriesIsNotTakenForIt) {
  SampleRecording carrier = makeSample({.messages = 20, .carriesBag = true});
  const Account sound = examine(carrier.bytes);
  EXPECT_EQ(sound.verdict, Verdict::kSound);
  EXPECT_THAT(sound.messages, SizeIs(20));
  // Lay its chunks open: cut the head off the carrying message. The index knows better.
  const SampleMessage& carrying = carrier.messages[10];
  std::string bytes = carrier.bytes;
  bytes.replace(carrying.begin, 60, std::string(60, '\x55'));
  const Account account = examine(bytes);
  EXPECT_THAT(account.messages, SizeIs(19));
  EXPECT_EQ(count(account, Proof::kConfirmed), 19U);
  EXPECT_GE(account.withinDamage, 5U);
  // Without an index, the sizes of a chunk whose payload alone is hit are right still.
  bytes = unclosed(carrier).bytes;
  bytes[carrying.begin + 50] ^= 1;
  EXPECT_THAT(examine(bytes).messages, SizeIs(19));
}

TEST_F(ExaminationTest, UnreadableSectorIsDamage) {
  writeFile(path_, bytes_);
  FailingFileCalls disk;
  disk.onlyFilesThatEndIn(".kbag");
  // The read of all fails, and then that of the first sector alone; later reads do not.
  disk.fail(FailingFileCalls::Call::kPread, 1, 2, EIO);
  const Account account = doctor::examine(path_, [](double) { return true; });
  EXPECT_EQ(account.unreadableBytes, 4096U);
  EXPECT_EQ(account.verdict, Verdict::kDamaged);
}

TEST_F(ExaminationTest, InterruptedAccountIsNotComplete) {
  writeFile(path_, bytes_);
  for (const int calls : {0, 1, 5}) {
    int left = calls;
    EXPECT_FALSE(doctor::examine(path_, [&](double) { return left-- > 0; }).isComplete) << calls;
  }
}

TEST_F(ExaminationTest, InputIsNotTouched) {
  bytes_[sample_.messages[2].begin] ^= 1;
  const Account account = examine(bytes_);
  EXPECT_EQ(readFile(path_), bytes_);
  EXPECT_FALSE(osmik::File::exists(path_ + ".index"));
}

}  // namespace morva::test
