#include <algorithm>
#include <cerrno>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bag/bag_bytes.h"
#include "bag/recording.h"
#include "bag/side_file_writer.h"
#include "kbag_msgs.pb.h"
#include "morva/bag.h"
#include "platform/crc32.h"
#include "support/bag_builder.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using protix::kbag_msgs::ChunkIndexData;
using Call = FailingFileCalls::Call;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr std::size_t kSideDataOffset =
    4096 + 8 + 12 + 4;  // header, framing, chunk header, data size

class Reindex : public testing::Test {
 protected:
  void write(const std::string& bag) { writeFile(path_, bag); }

  /// Records three messages and takes the index away.
  void writeUnclosed(CompressionType compression = CompressionType::kNone) {
    record(path_, {"/imu", "/gnss"},
           {{.topic = "/imu", .firstTimeUs = 1, .data = "one"},
            {.topic = "/gnss", .firstTimeUs = 2, .data = std::string(500, 'x'), .compress = true},
            {.topic = "/imu", .firstTimeUs = 3, .data = "three"}},
           {.compression = compression, .privateData = "device"});
    write(withoutClose(readFile(path_)));
  }

  /// The payloads of both topics, through the handle.
  std::vector<std::string> readBack() {
    MorvaBag bag;
    EXPECT_EQ(bag.open(path_, BagMode::kRead), 0);
    return readAll(bag, bag.getView(std::vector<std::string>{"/imu", "/gnss"}, 0, 0));
  }

  ChunkIndexData sideIndex() {
    const std::string side = readFile(side_);
    ChunkIndexData index;
    EXPECT_TRUE(
        index.ParseFromString(side.substr(kSideDataOffset, numberAt<std::uint32_t>(side, 4116))));
    return index;
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  const std::string side_ = path_ + ".index";
};

TEST_F(Reindex, MissingBagReturnsThree) {
  const LogCapture log;
  EXPECT_EQ(MorvaBag::reindex(path_), 3);
  EXPECT_THAT(log.lines(), ElementsAre("<E>TIME [reindex,L0] bag file(" + path_ + ") not exists!"));
  EXPECT_FALSE(std::filesystem::exists(side_));
}

TEST_F(Reindex, BagThatCannotBeOpenedReturnsTheReadersCode) {
  std::string bag = unclosedBag({{0, "/imu"}}, {});
  bag[4095] ^= 1;
  write(bag);
  const LogCapture log;
  EXPECT_EQ(MorvaBag::reindex(path_), 6);
  EXPECT_THAT(log.lines(), Contains("<E>TIME [reindex,L0] open bag file(" + path_ + ") error(6)!"));
  EXPECT_EQ(MorvaBag::reindex(dir_.path()), 4);
  write("no bag");
  EXPECT_EQ(MorvaBag::reindex(path_), 7);
  EXPECT_FALSE(std::filesystem::exists(side_));
}

TEST_F(Reindex, UnclosedBagCanBeReadAgain) {
  for (const auto codec : {CompressionType::kNone, CompressionType::kLz4, CompressionType::kZstd}) {
    std::filesystem::remove(path_);
    std::filesystem::remove(side_);
    writeUnclosed(codec);
    const LogCapture log;
    EXPECT_EQ(MorvaBag::reindex(path_), 0);
    EXPECT_THAT(log.lines(), Contains("<I>TIME [reindex] reindex file(" + path_ + ") success."));
    EXPECT_THAT(log.lines(), Not(Contains("<W>TIME [reindex,L0] over write index file!")));
    EXPECT_THAT(readBack(), ElementsAre("one", "three", std::string(500, 'x')));
  }
}

TEST_F(Reindex, SideFileHasTheBagsHeaderAndAnIndexChunk) {
  writeUnclosed();
  const std::string bag = readFile(path_);
  const std::vector<RawChunk> chunks = walkBytes(bag);
  ASSERT_EQ(MorvaBag::reindex(path_), 0);

  const std::string side = readFile(side_);
  EXPECT_EQ(side.substr(0, 16), bag.substr(0, 16));
  EXPECT_EQ(numberAt<std::uint64_t>(side, 16), chunks[0].end());
  EXPECT_EQ(numberAt<std::uint64_t>(side, 24), 4096U);
  EXPECT_EQ(side.substr(32, 4092 - 32), bag.substr(32, 4092 - 32));
  EXPECT_EQ(numberAt<std::uint32_t>(side, 4092), Crc32(side.data(), 4092));

  const std::vector<RawChunk> sideChunks = walkBytes(side);
  ASSERT_EQ(sideChunks.size(), 1U);
  const RawChunk& index = sideChunks[0];
  EXPECT_EQ(index.type, 255);
  EXPECT_TRUE(index.isSound);
  ASSERT_EQ(index.header.size(), 12U);
  EXPECT_GT(numberAt<std::int64_t>(index.header, 0), 1'700'000'000'000'000);
  EXPECT_EQ(numberAt<std::uint32_t>(index.header, 8), index.data.size());
  EXPECT_EQ(side.size() % 4096, 0U);
  EXPECT_LT(side.size() - index.end(), 4096U);
  EXPECT_THAT(side.substr(index.end()), testing::Each(' '));
}

TEST_F(Reindex, BagWithIndexGetsTheSameIndexBeside) {
  record(path_, {"/imu", "/gnss"}, {{.topic = "/imu", .firstTimeUs = 1, .data = "one"}});
  const std::string bag = readFile(path_);
  EXPECT_EQ(MorvaBag::reindex(path_), 0);
  EXPECT_EQ(readFile(path_), bag);
  EXPECT_EQ(walkBytes(readFile(side_)).at(0).data, walkBytes(bag).back().data);
  EXPECT_THAT(readBack(), ElementsAre("one"));
}

TEST_F(Reindex, ExistingSideFileIsReplacedWithAWarning) {
  writeUnclosed();
  writeFile(side_, std::string(100'000, 'x'));
  const LogCapture log;
  EXPECT_EQ(MorvaBag::reindex(path_), 0);
  EXPECT_THAT(log.lines(), Contains("<W>TIME [reindex,L0] over write index file!"));
  EXPECT_EQ(readFile(side_).size(), 8192U);
  EXPECT_THAT(readBack(), ElementsAre("one", "three", std::string(500, 'x')));
}

TEST_F(Reindex, LinkOfItsNameIsReplacedAndNotFollowed) {
  writeUnclosed();
  const std::string victim = side_ + ".victim";
  for (const bool isSymbolic : {true, false}) {
    writeFile(victim, "untouched");
    std::filesystem::remove(side_);
    if (isSymbolic) {
      std::filesystem::create_symlink(victim, side_);
    } else {
      std::filesystem::create_hard_link(victim, side_);
    }
    EXPECT_EQ(MorvaBag::reindex(path_), 0);
    EXPECT_EQ(readFile(victim), "untouched");
    EXPECT_THAT(readBack(), ElementsAre("one", "three", std::string(500, 'x')));
  }
}

TEST_F(Reindex, SideFileOfAnotherBagIsReplaced) {
  writeUnclosed();
  writeFile(side_, BagBuilder().topic(0, "/other").message({.stored = "other"}).buildSideFile());
  MorvaBag bag;
  ASSERT_EQ(bag.open(path_, BagMode::kRead), 1);
  EXPECT_EQ(MorvaBag::reindex(path_), 0);
  EXPECT_THAT(readBack(), ElementsAre("one", "three", std::string(500, 'x')));
}

TEST_F(Reindex, BagWithoutMessagesGetsAnEntryForEveryTopic) {
  write(unclosedBag({{1, "/a"}, {0, "/b"}}, {}));
  EXPECT_EQ(MorvaBag::reindex(path_), 0);
  const ChunkIndexData index = sideIndex();
  ASSERT_EQ(index.indexes_size(), 2);
  EXPECT_EQ(index.indexes(0).topic_id(), 0U);
  EXPECT_EQ(index.indexes(1).topic_id(), 1U);
  EXPECT_EQ(index.indexes(1).chunk_offsets_size(), 0);
  MorvaBag bag;
  EXPECT_EQ(bag.open(path_, BagMode::kRead), 0);
}

TEST_F(Reindex, BagCutAtAnyLengthGivesBackEveryWholeMessage) {
  const std::string whole =
      unclosedBag({{0, "/imu"}, {1, "/gnss"}}, {messageChunk({.topicId = 0, .stored = "one"}),
                                                messageChunk({.topicId = 1, .stored = "2"}),
                                                messageChunk({.topicId = 0, .stored = "three"})});
  const std::size_t dataStart = walkBytes(whole).at(0).end();
  write(whole);
  for (std::size_t length = whole.size(); length > 4090; --length) {
    std::filesystem::resize_file(path_, length);
    std::filesystem::remove(side_);
    const int code = MorvaBag::reindex(path_);
    ASSERT_EQ(code, length < dataStart ? 7 : 0) << length;
    if (code != 0) continue;
    ASSERT_EQ(readBack().size(), walkBytes(whole.substr(0, length)).size() - 1) << length;
  }
}

TEST_F(Reindex, MessagesBehindDamageAreLost) {
  writeUnclosed();
  std::string bag = readFile(path_);
  bag[walkBytes(bag)[2].offset + 50] ^= 1;
  write(bag);
  EXPECT_EQ(MorvaBag::reindex(path_), 0);
  EXPECT_THAT(readBack(), ElementsAre("one"));
}

TEST_F(Reindex, FlippedByteAnywhereCostsNothingThatLiesBeforeIt) {
  const std::string sound =
      unclosedBag({{0, "/imu"}, {1, "/gnss"}}, {messageChunk({.topicId = 0, .stored = "one"}),
                                                messageChunk({.topicId = 1, .stored = "2"}),
                                                messageChunk({.topicId = 0, .stored = "three"})});
  const std::vector<RawChunk> chunks = walkBytes(sound);
  for (std::size_t i = 4090; i < sound.size(); ++i) {
    std::string bag = sound;
    bag[i] = static_cast<char>(bag[i] ^ (1 << i % 8));
    std::filesystem::remove(path_);
    std::filesystem::remove(side_);
    write(bag);
    const int code = MorvaBag::reindex(path_);
    if (code != 0) {
      ASSERT_LT(i, chunks[0].end());  // the header or the definition chunk
      continue;
    }
    const auto before = static_cast<std::size_t>(
        std::ranges::count_if(chunks, [i](const RawChunk& chunk) { return chunk.end() <= i; }));
    const View view = MorvaBag::getAllView(path_, nullptr);
    ASSERT_GE(view.indexes.size() + 1, before) << i;
    MorvaBag handle;
    ASSERT_EQ(handle.open(path_, BagMode::kRead), 0) << i;
    for (std::size_t k = 0; k + 1 < before; ++k) {
      std::string data;
      ASSERT_TRUE(handle.readMessage(view.indexes[k], &data)) << i;
      ASSERT_EQ(data, chunks[k + 1].data) << i;
    }
  }
}

TEST_F(Reindex, MessagesOfUnknownTopicsStayInTheIndex) {
  write(unclosedBag({{0, "/imu"}}, {messageChunk({.topicId = 9, .stored = "lost"}),
                                    messageChunk({.topicId = 0, .stored = "found"})}));
  EXPECT_EQ(MorvaBag::reindex(path_), 0);
  ASSERT_EQ(sideIndex().indexes_size(), 2);
  EXPECT_EQ(sideIndex().indexes(1).topic_id(), 9U);
  MorvaBag bag;
  ASSERT_EQ(bag.open(path_, BagMode::kRead), 0);
  EXPECT_THAT(readAll(bag, bag.getView("/imu", 0, 0)), ElementsAre("found"));
}

TEST_F(Reindex, ScanThatCannotOpenTheBagReturnsOne) {
  writeUnclosed();
  FailingFileCalls calls;
  calls.fail(Call::kOpen, 2, 1, EMFILE);  // the first is the reader's, the second the scan's
  const LogCapture log;
  EXPECT_EQ(MorvaBag::reindex(path_), 1);
  EXPECT_THAT(log.lines(), Contains("<E>TIME [reindex,L0] reindex bag file(" + path_ + ") error!"));
  EXPECT_FALSE(std::filesystem::exists(side_));
}

TEST_F(Reindex, SideFileThatCannotBeCreatedReturnsFour) {
  writeUnclosed();
  std::filesystem::create_directory(side_);
  const LogCapture log;
  EXPECT_EQ(MorvaBag::reindex(path_), 4);
  EXPECT_THAT(log.lines(),
              Contains("<E>TIME [reindex,L0] create index file(" + side_ + ") error!"));
}

TEST_F(Reindex, EveryWriteThatFailsIsNamedAndLeavesAPartBehind) {
  struct Failure {
    const char* what;
    int code;
    std::size_t written;  // bytes before it
  };
  writeUnclosed();
  ASSERT_EQ(MorvaBag::reindex(path_), 0);
  const std::size_t crcOffset = walkBytes(readFile(side_)).at(0).end() - 4;
  const std::vector<Failure> failures = {
      {"index file header", 8, 0},
      {"index file crc32", 6, 4092},
      {"index chunk size", 5, 4096},
      {"index chunk type", 5, 4100},
      {"index header size", 8, 4102},
      {"index chunk time", 5, 4104},
      {"index msg size", 5, 4112},
      {"index data size", 5, 4116},
      {"index data", 5, 4120},
      {"index file crc32", 6, crcOffset},
      {"padding data", 5, crcOffset + 4},
  };
  for (std::size_t i = 0; i < failures.size(); ++i) {
    std::filesystem::remove(side_);
    FailingFileCalls calls;
    calls.fail(Call::kPwrite, static_cast<int>(i) + 1);
    const LogCapture log;
    EXPECT_EQ(MorvaBag::reindex(path_), failures[i].code) << i;
    EXPECT_EQ(log.lines().back(),
              std::string("<E>TIME [reindex,L0] write ") + failures[i].what + " error!");
    EXPECT_EQ(readFile(side_).size(), failures[i].written) << i;
  }
}

TEST_F(Reindex, FailedCloseReturnsFive) {
  writeUnclosed();
  FailingFileCalls calls;
  calls.onlyFilesThatEndIn(".index");
  calls.fail(Call::kClose, 1, 1, EIO);
  const LogCapture log;
  EXPECT_EQ(MorvaBag::reindex(path_), 5);
  EXPECT_EQ(log.lines().back(), "<E>TIME [reindex,L0] close index file(" + side_ + ") error!");
}

TEST_F(Reindex, FullDiskNeverLooksLikeSuccess) {
  writeUnclosed();
  ASSERT_EQ(MorvaBag::reindex(path_), 0);
  const auto size = static_cast<std::int64_t>(readFile(side_).size());
  FailingFileCalls calls;
  for (std::int64_t limit = 0; limit < size; limit += limit < 4000 || limit > 4400 ? 200 : 1) {
    std::filesystem::remove(side_);
    calls.limitFileBytes(limit);
    EXPECT_NE(MorvaBag::reindex(path_), 0) << limit;
  }
  calls.limitFileBytes(size);
  EXPECT_EQ(MorvaBag::reindex(path_), 0);
}

TEST_F(Reindex, ShortWritesAreCompleted) {
  writeUnclosed();
  FailingFileCalls calls;
  for (int n = 1; n <= 11; ++n) calls.shorten(Call::kPwrite, n, 1);
  EXPECT_EQ(MorvaBag::reindex(path_), 0);
  EXPECT_THAT(readBack(), ElementsAre("one", "three", std::string(500, 'x')));
}

TEST(WriteSideFile, PaddingEndsTheFileOnTheNextBoundaryOrNotAtAll) {
  const TempDir dir;
  const Log log({}, "reindex");
  const auto sizeWith = [&](std::size_t indexSize) {
    const std::string path = dir / std::to_string(indexSize);
    EXPECT_EQ(writeSideFile(path, log, {}, std::string(indexSize, 'x')), kSideFileOk);
    return std::filesystem::file_size(path);
  };
  constexpr std::size_t kFraming = 16 + 12;
  EXPECT_EQ(sizeWith(0), 8192U);
  EXPECT_EQ(sizeWith(4096 - kFraming - 1), 8192U);
  EXPECT_EQ(sizeWith(4096 - kFraming), 8192U);
  EXPECT_EQ(sizeWith(4096 - kFraming + 1), 12288U);
}

}  // namespace
}  // namespace morva::test
