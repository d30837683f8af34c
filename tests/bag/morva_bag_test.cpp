#include <atomic>
#include <filesystem>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bag/bag_bytes.h"
#include "bag/recording.h"
#include "morva/bag.h"
#include "support/bag_builder.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

const Message kMessage{.topic = "/imu", .firstTimeUs = 1000};

TEST(MorvaBagOpenForWriting, ExistingPathReturnsExistsAndLeavesTheFile) {
  const TempDir dir;
  writeFile(dir / "a.kbag", "precious");
  const LogCapture log;
  MorvaBag bag;
  bag.topics = {"/imu"};

  EXPECT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), MorvaBag::kOpenExists);
  EXPECT_THAT(log.lines(),
              ElementsAre("<E>TIME [MorvaBag::open,L0] bag file exist: " + (dir / "a.kbag") + "!"));
  EXPECT_EQ(readFile(dir / "a.kbag"), "precious");
}

TEST(MorvaBagOpenForWriting, EmptyTopicsReturnNoTopicsBeforeAFileIsMade) {
  const TempDir dir;
  const LogCapture log;
  MorvaBag bag;

  EXPECT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), MorvaBag::kOpenNoTopics);
  EXPECT_THAT(log.lines(), ElementsAre("<E>TIME [MorvaBag::open,L0] bag topics is empty, write "
                                       "options may not set!"));
  EXPECT_FALSE(std::filesystem::exists(dir / "a.kbag"));
}

TEST(MorvaBagOpenForWriting, WriterCodesComeUpUnchanged) {
  const TempDir dir;
  MorvaBag bag;
  bag.topics = {"/imu"};
  EXPECT_EQ(bag.open(dir / "missing/a.kbag", BagMode::kWrite), MorvaBag::kOpenFailed);
  EXPECT_EQ(bag.open(dir / "b.kbag", BagMode::kWrite, std::string(4057, 'x')),
            MorvaBag::kOpenPrivateData);
  EXPECT_FALSE(write(bag, kMessage));
}

TEST(MorvaBagOpenForWriting, FullPrivateDataIsAccepted) {
  const TempDir dir;
  const std::string privateData(4056, 'x');
  record(dir / "a.kbag", {"/imu"}, {}, {.privateData = privateData});
  EXPECT_EQ(readFile(dir / "a.kbag").substr(36, 4056), privateData);
}

TEST(MorvaBagOpenForReading, MissingPathReturnsMissing) {
  const TempDir dir;
  const LogCapture log;
  MorvaBag bag;
  EXPECT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), MorvaBag::kOpenMissing);
  EXPECT_THAT(
      log.lines(),
      ElementsAre("<E>TIME [MorvaBag::open,L0] bag file not exist: " + (dir / "a.kbag") + "!"));
}

TEST(MorvaBagOpenForReading, EveryModeButOneReads) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"}, {kMessage});
  for (const std::uint32_t mode : {0U, 2U, 3U, 0xFFFFFFFFU}) {
    MorvaBag bag;
    EXPECT_EQ(bag.open(dir / "a.kbag", static_cast<BagMode>(mode)), 0) << mode;
    EXPECT_THAT(readAll(bag, bag.getView("/imu", 0, 0)), ElementsAre("payload")) << mode;
  }
}

TEST(MorvaBagOpenForReading, ReaderCodesComeUpUnchanged) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"}, {kMessage});
  const std::string sound = readFile(dir / "a.kbag");
  std::string flipped = sound;
  flipped[3000] ^= 1;
  writeFile(dir / "flipped.kbag", flipped);
  std::string foreign = sound;
  foreign[0] = 'k';
  writeFile(dir / "foreign.kbag", foreign);
  writeFile(dir / "unclosed.kbag", withoutClose(sound));
  writeFile(dir / "empty.kbag", "");

  MorvaBag bag;
  EXPECT_EQ(bag.open(dir.path(), BagMode::kRead), MorvaBag::kOpenFailed);
  EXPECT_EQ(bag.open(dir / "flipped.kbag", BagMode::kRead), MorvaBag::kOpenChecksum);
  EXPECT_EQ(bag.open(dir / "foreign.kbag", BagMode::kRead), MorvaBag::kOpenMalformed);
  EXPECT_EQ(bag.open(dir / "empty.kbag", BagMode::kRead), MorvaBag::kOpenMalformed);
  EXPECT_EQ(bag.open(dir / "unclosed.kbag", BagMode::kRead), MorvaBag::kOpenNoIndex);
}

TEST(MorvaBagOpenForReading, FailureClosesTheHandle) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"}, {kMessage});
  writeFile(dir / "unclosed.kbag", withoutClose(readFile(dir / "a.kbag")));
  MorvaBag bag;
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  const View view = bag.getView("/imu", 0, 0);
  ASSERT_EQ(view.indexes.size(), 1U);

  EXPECT_EQ(bag.open(dir / "unclosed.kbag", BagMode::kRead), MorvaBag::kOpenNoIndex);
  std::string data;
  EXPECT_FALSE(bag.readMessage(view.indexes[0], &data));
  EXPECT_EQ(bag.getInfo().topicCount, 0U);
}

TEST(MorvaBagOpenForReading, CompressionTypeComesFromTheFile) {
  const TempDir dir;
  record(dir / "zstd.kbag", {"/imu"}, {}, {.compression = CompressionType::kZstd});
  record(dir / "odd.kbag", {"/imu"}, {}, {.compression = static_cast<CompressionType>(0x1234)});
  MorvaBag bag;
  bag.compressionType = CompressionType::kLz4;
  ASSERT_EQ(bag.open(dir / "zstd.kbag", BagMode::kRead), 0);
  EXPECT_EQ(bag.compressionType, CompressionType::kZstd);
  ASSERT_EQ(bag.open(dir / "odd.kbag", BagMode::kRead), 0);
  EXPECT_EQ(bag.compressionType, static_cast<CompressionType>(0x34));
}

TEST(MorvaBagOpen, RefusalBeforeAnythingIsTouchedKeepsWhatIsOpen) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"}, {kMessage});
  MorvaBag bag;
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);

  EXPECT_EQ(bag.open(dir / "none.kbag", BagMode::kRead), MorvaBag::kOpenMissing);
  EXPECT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), MorvaBag::kOpenExists);
  EXPECT_EQ(bag.open(dir / "new.kbag", BagMode::kWrite), MorvaBag::kOpenNoTopics);
  EXPECT_THAT(readAll(bag, bag.getView("/imu", 0, 0)), ElementsAre("payload"));
}

TEST(MorvaBagOpen, ReplacesWhatIsOpen) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"}, {kMessage});
  MorvaBag bag;
  bag.topics = {"/imu"};
  ASSERT_EQ(bag.open(dir / "b.kbag", BagMode::kWrite), 0);
  ASSERT_TRUE(write(bag, {.topic = "/imu", .firstTimeUs = 5, .data = "of b"}));

  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  EXPECT_THAT(readAll(bag, bag.getView("/imu", 0, 0)), ElementsAre("payload"));
  ASSERT_EQ(bag.open(dir / "b.kbag", BagMode::kRead), 0);  // was finished when it was replaced
  EXPECT_THAT(readAll(bag, bag.getView("/imu", 0, 0)), ElementsAre("of b"));
}

TEST(MorvaBagOpen, DirectoryAndFileNameAreSetOnSuccessOnly) {
  const TempDir dir;
  MorvaBag bag;
  bag.topics = {"/imu"};
  EXPECT_EQ(bag.open(dir / "missing/a.kbag", BagMode::kWrite), MorvaBag::kOpenFailed);
  EXPECT_EQ(bag.directory(), "");
  EXPECT_EQ(bag.fileName(), "");
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), 0);
  EXPECT_EQ(bag.directory(), dir.path());
  EXPECT_EQ(bag.fileName(), "a.kbag");
}

TEST(MorvaBagClose, ClosedHandleIsLeftAlone) {
  MorvaBag bag;
  EXPECT_TRUE(bag.close());
  EXPECT_TRUE(bag.close());
}

TEST(MorvaBagClose, HandleOpensAgain) {
  const TempDir dir;
  MorvaBag bag;
  bag.topics = {"/imu"};
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), 0);
  ASSERT_TRUE(write(bag, kMessage));
  ASSERT_TRUE(bag.close());
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  EXPECT_THAT(readAll(bag, bag.getView("/imu", 0, 0)), ElementsAre("payload"));
  ASSERT_TRUE(bag.close());
  EXPECT_THAT(bag.getView("/imu", 0, 0).indexes, IsEmpty());
}

TEST(MorvaBagDestructor, FinishesTheFile) {
  const TempDir dir;
  {
    MorvaBag bag;
    bag.topics = {"/imu"};
    ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), 0);
    ASSERT_TRUE(write(bag, kMessage));
  }
  EXPECT_EQ(MorvaBag::checkAll(dir / "a.kbag"), 0);
}

TEST(MakeMessageHeader, HoldsFlagCountAndTimes) {
  EXPECT_EQ(MorvaBag::makeMessageHeader(true, 0x01020304, 0x1112131415161718, -2),
            std::string("\x01\0\0\0\x04\x03\x02\x01", 8) +
                std::string("\x18\x17\x16\x15\x14\x13\x12\x11", 8) + std::string("\xFE") +
                std::string(7, '\xFF') + std::string(8, '\0'));
  EXPECT_EQ(MorvaBag::makeMessageHeader(false, 0, 0, 0), std::string(32, '\0'));
}

TEST(WriteMessage, ChunkHoldsTheFieldsOfTheHeader) {
  const TempDir dir;
  MorvaBag bag;
  bag.topics = {"/b", "/a"};
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), 0);
  // Longer than it must be, and all different: flag, count word, 16 bytes of times, unused.
  std::string header = le<std::uint32_t>(0) + "\x04\x05\x06\x07";
  for (char c = 8; c < 40; ++c) header += c;
  ASSERT_TRUE(bag.writeMessage("/a", 0x3132333435363738, header, "some data"));
  ASSERT_TRUE(bag.close());

  const std::string bytes = readFile(dir / "a.kbag");
  const std::vector<RawChunk> chunks = walkBytes(bytes);
  ASSERT_EQ(chunks.size(), 3U);
  EXPECT_EQ(chunks[1].offset, 4096U + 16 + 12 + 2 * 64);
  EXPECT_EQ(chunks[1].type, 1);
  EXPECT_EQ(chunks[1].data, "some data");
  EXPECT_EQ(chunks[1].header, le<std::int64_t>(0x3132333435363738) + le<std::uint32_t>(9) +
                                  header.substr(4, 4) + header.substr(8, 16) +
                                  le<std::uint32_t>(1));
}

TEST(WriteMessage, FlagDecidesOnCompression) {
  const TempDir dir;
  const std::string data(5000, 'x');
  record(dir / "a.kbag", {"/imu"},
         {{.topic = "/imu", .firstTimeUs = 1, .data = data, .compress = false},
          {.topic = "/imu", .firstTimeUs = 2, .data = data, .compress = true}},
         {.compression = CompressionType::kLz4});
  const std::vector<RawChunk> chunks = walkBytes(readFile(dir / "a.kbag"));
  ASSERT_EQ(chunks.size(), 4U);
  EXPECT_EQ(chunks[1].data, data);
  EXPECT_LT(chunks[2].data.size(), 100U);

  MorvaBag bag;
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  const View view = bag.getView("/imu", 0, 0);
  EXPECT_THAT(readAll(bag, view), ElementsAre(data, data));
  EXPECT_EQ(view.indexes[0].storedSize, 5000U);
  EXPECT_EQ(view.indexes[1].storedSize, chunks[2].data.size());
}

TEST(WriteMessage, AnyFlagButZeroCompresses) {
  const TempDir dir;
  MorvaBag bag;
  bag.topics = {"/imu"};
  bag.compressionType = CompressionType::kZstd;
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), 0);
  std::string header = MorvaBag::makeMessageHeader(false, 1, 1, 1);
  header[3] = '\x80';
  ASSERT_TRUE(bag.writeMessage("/imu", 1, header, std::string(5000, 'x')));
  ASSERT_TRUE(bag.close());
  EXPECT_LT(walkBytes(readFile(dir / "a.kbag"))[1].data.size(), 100U);
}

TEST(WriteMessage, ShortHeaderIsRefused) {
  const TempDir dir;
  MorvaBag bag;
  bag.topics = {"/imu"};
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), 0);
  const LogCapture log;
  EXPECT_FALSE(bag.writeMessage("/imu", 1, std::string(31, '\1'), "data"));
  EXPECT_THAT(log.lines(), ElementsAre("<E>TIME [MorvaBag::writeMessage,L0] write topic [/imu] "
                                       "error, message header size(31 < 32)!"));
  EXPECT_TRUE(bag.writeMessage("/imu", 1, std::string(32, '\1'), "data"));
  EXPECT_TRUE(bag.close());
}

TEST(WriteMessage, UnknownTopicIsRefusedAndTheBagGoesOn) {
  const TempDir dir;
  MorvaBag bag;
  bag.topics = {"/imu"};
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), 0);
  EXPECT_FALSE(write(bag, {.topic = "/gnss"}));
  EXPECT_TRUE(write(bag, kMessage));
  ASSERT_TRUE(bag.close());
  EXPECT_EQ(MorvaBag::checkAll(dir / "a.kbag"), 0);
}

TEST(WriteMessage, HandleNotOpenForWritingRefuses) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"}, {kMessage});
  const std::string line =
      "<E>TIME [MorvaBag::writeMessage,L0] write topic [/imu] error, bag is not open for writing!";
  const LogCapture log;
  MorvaBag bag;
  EXPECT_FALSE(write(bag, kMessage));
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  EXPECT_FALSE(write(bag, kMessage));
  EXPECT_THAT(log.errors(), ElementsAre(line, line));
}

TEST(ReadMessage, EmptyAndUncountedMessagesAreWrittenAndRefused) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"},
         {{.topic = "/imu", .firstTimeUs = 1, .data = ""},
          {.topic = "/imu", .firstTimeUs = 2, .count = 0},
          {.topic = "/imu", .firstTimeUs = 3}});
  MorvaBag bag;
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  const View view = bag.getView("/imu", 0, 0);
  ASSERT_EQ(view.indexes.size(), 3U);
  std::string data;
  EXPECT_FALSE(bag.readMessage(view.indexes[0], &data));
  EXPECT_FALSE(bag.readMessage(view.indexes[1], &data));
  EXPECT_TRUE(bag.readMessage(view.indexes[2], &data));
  EXPECT_EQ(data, "payload");
}

TEST(ReadMessage, NegativeTopicIdIsAParameterError) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"}, {kMessage});
  MorvaBag bag;
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  MsgIndex index = bag.getView("/imu", 0, 0).indexes.at(0);
  index.topicId = 0x80000000;
  std::string data;
  const LogCapture log;
  EXPECT_FALSE(bag.readMessage(index, &data));
  index.topicId = 0xFFFFFFFF;
  EXPECT_FALSE(bag.readMessage(index, &data));
  EXPECT_THAT(log.lines(),
              ElementsAre("<E>TIME [MorvaBag::readMessage,L0] param error, topicId: -2147483648!",
                          "<E>TIME [MorvaBag::readMessage,L0] param error, topicId: -1!"));
}

TEST(ReadMessage, NullOutputIsAParameterError) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"}, {kMessage});
  MorvaBag bag;
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  const LogCapture log;
  EXPECT_FALSE(bag.readMessage(bag.getView("/imu", 0, 0).indexes.at(0), nullptr));
  EXPECT_THAT(log.lines(),
              ElementsAre("<E>TIME [MorvaBag::readMessage,L0] param error, topicId: 0!"));
}

TEST(ReadMessage, ClosedHandleLogsTheOffsetInBothForms) {
  const MorvaBag bag;
  MsgIndex index;
  index.chunkOffset = 0x123456789A;
  std::string data;
  const LogCapture log;
  EXPECT_FALSE(bag.readMessage(index, &data));
  EXPECT_THAT(log.lines(), ElementsAre("<E>TIME [MorvaBag::readMessage,L0] read chunk "
                                       "offset(0x3456789A:78187493530) error!"));
}

TEST(ReadMessage, DamagedMessageFailsAlone) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"},
         {{.topic = "/imu", .firstTimeUs = 1, .data = "first"},
          {.topic = "/imu", .firstTimeUs = 2, .data = "second"}});
  std::string bytes = readFile(dir / "a.kbag");
  bytes[walkBytes(bytes)[1].offset + 48] ^= 1;
  writeFile(dir / "a.kbag", bytes);
  MorvaBag bag;
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  const View view = bag.getView("/imu", 0, 0);
  std::string data;
  const LogCapture log;
  EXPECT_FALSE(bag.readMessage(view.indexes.at(0), &data));
  EXPECT_THAT(log.errors().back(), EndsWith("read chunk offset(0x0000105C:4188) error!"));
  EXPECT_TRUE(bag.readMessage(view.indexes.at(1), &data));
  EXPECT_EQ(data, "second");
}

TEST(ReadMessage, IndexThatLiesAboutSizesIsRefused) {
  const TempDir dir;
  record(dir / "a.kbag", {"/imu"}, {kMessage}, {.compression = CompressionType::kLz4});
  MorvaBag bag;
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  const MsgIndex sound = bag.getView("/imu", 0, 0).indexes.at(0);
  std::string data;

  MsgIndex huge = sound;
  huge.rawSize = huge.storedSize = 0xFFFFFFFF;
  EXPECT_FALSE(bag.readMessage(huge, &data));
  MsgIndex inflated = sound;
  inflated.rawSize = 0xFFFFFFFF;
  EXPECT_FALSE(bag.readMessage(inflated, &data));
  MsgIndex shrunk = sound;
  shrunk.rawSize = sound.storedSize - 1;
  EXPECT_FALSE(bag.readMessage(shrunk, &data));
  MsgIndex beyond = sound;
  beyond.chunkOffset = 0xFFFFFFFFFFFFFFFF;
  EXPECT_FALSE(bag.readMessage(beyond, &data));
  EXPECT_TRUE(bag.readMessage(sound, &data));
}

TEST(ReadMessage, ThreadsShareAHandle) {
  const TempDir dir;
  std::vector<Message> messages;
  for (int i = 0; i < 50; ++i) {
    messages.push_back({.topic = "/imu",
                        .firstTimeUs = i + 1,
                        .data = std::string(static_cast<std::size_t>(100 + i * 37), 'x') + "end",
                        .compress = i % 2 == 0});
  }
  record(dir / "a.kbag", {"/imu"}, messages, {.compression = CompressionType::kZstd});
  MorvaBag bag;
  ASSERT_EQ(bag.open(dir / "a.kbag", BagMode::kRead), 0);
  const View view = bag.getView("/imu", 0, 0);
  ASSERT_EQ(view.indexes.size(), messages.size());

  std::atomic<int> wrong = 0;
  const auto readEverything = [&] {
    std::string data;
    for (std::size_t i = 0; i < messages.size(); ++i) {
      if (!bag.readMessage(view.indexes[i], &data) || data != messages[i].data) ++wrong;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(readEverything);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST(GetVersion, IsTheVersionOfTheBagLibrary) {
  EXPECT_EQ(MorvaBag::getVersion(), "V1.0.8_20250826.105414");
  EXPECT_EQ(MorvaBag::getVersion().size(), 22U);
}

}  // namespace
}  // namespace morva::test
