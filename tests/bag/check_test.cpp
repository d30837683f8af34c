#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

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

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kSound = 0;
constexpr int kDamaged = 7;

class CheckAll : public testing::Test {
 protected:
  int check(const std::string& bag) {
    writeFile(path_, bag);
    return MorvaBag::checkAll(path_);
  }

  /// A sound bag with two messages, one of them compressed where there is a codec.
  std::string soundBag(CompressionType compression = CompressionType::kNone) {
    const std::string path = dir_ / ("sound" + std::to_string(count_++));
    record(path, {"/a", "/b"},
           {{.topic = "/a", .firstTimeUs = 1, .data = std::string(60, 'x'), .compress = true},
            {.topic = "/b", .firstTimeUs = 2, .data = "as it stands"}},
           {.compression = compression});
    return readFile(path);
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";

 private:
  int count_ = 0;
};

TEST_F(CheckAll, MissingBagReturnsThree) {
  const LogCapture log;
  EXPECT_EQ(MorvaBag::checkAll(path_), 3);
  EXPECT_THAT(log.lines(),
              ElementsAre("<E>TIME [checkAll,L0] bag file(" + path_ + ") not exists!"));
}

TEST_F(CheckAll, BagThatCannotBeOpenedReturnsTheReadersCode) {
  std::string bag = soundBag();
  bag[50] ^= 1;
  const LogCapture log;
  EXPECT_EQ(check(bag), 6);
  EXPECT_THAT(log.lines(),
              Contains("<E>TIME [checkAll,L0] open bag file(" + path_ + ") error(6)!"));
  EXPECT_EQ(check(""), 7);
  EXPECT_EQ(MorvaBag::checkAll(dir_.path()), 4);
}

TEST_F(CheckAll, SoundBagReturnsZeroWithoutALine) {
  for (const auto codec : {CompressionType::kNone, CompressionType::kLz4, CompressionType::kZstd}) {
    const std::string bag = soundBag(codec);
    const LogCapture log;
    EXPECT_EQ(check(bag), kSound);
    EXPECT_THAT(log.lines(), IsEmpty());
  }
}

TEST_F(CheckAll, ProgressIsToldEveryMessageInFileOrder) {
  writeFile(path_, soundBag());
  std::vector<std::uint64_t> offsets;
  const auto note = [&](std::uint64_t offset) {
    offsets.push_back(offset);
    return true;
  };
  EXPECT_EQ(MorvaBag::checkAll(path_, note), kSound);
  std::vector<std::uint64_t> expected;
  for (const MsgIndex& index : MorvaBag::getAllView(path_, nullptr).indexes) {
    expected.push_back(index.chunkOffset);
  }
  EXPECT_EQ(offsets.size(), 2U);
  EXPECT_EQ(offsets, expected);
}

TEST_F(CheckAll, ProgressThatSaysStopEndsTheCheckSilently) {
  writeFile(path_, soundBag());
  const LogCapture log;
  int calls = 0;
  const auto stop = [&](std::uint64_t /*offset*/) { return ++calls < 1; };
  EXPECT_EQ(MorvaBag::checkAll(path_, stop), MorvaBag::kCheckStopped);
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(CheckAll, ProgressDoesNotHideDamage) {
  std::string bag = soundBag();
  bag[bag.find("as it stands")] ^= 1;
  writeFile(path_, bag);
  EXPECT_EQ(MorvaBag::checkAll(path_, [](std::uint64_t /*offset*/) { return true; }), kDamaged);
}

TEST_F(CheckAll, BagWithoutMessagesIsSound) {
  record(path_, {"/a"}, {});
  EXPECT_EQ(MorvaBag::checkAll(path_), kSound);
}

TEST_F(CheckAll, UnclosedBagHasNoEndChunk) {
  const std::string bag = withoutClose(soundBag());
  const LogCapture log;
  EXPECT_EQ(check(bag), kDamaged);
  const std::string at = osmik::StrUtil::format("0x%016llx:%lld", bag.size(), bag.size());
  EXPECT_THAT(log.lines(), Contains("<W>TIME [checkAll,L0] read chunk offset(" + at + ") error!"));
}

TEST_F(CheckAll, LastChunkCutShortReturnsSeven) {
  const std::string bag = soundBag();
  const std::size_t offset = walkBytes(bag).back().offset;
  const LogCapture log;
  EXPECT_EQ(check(bag.substr(0, walkBytes(bag).back().end() - 1)), kDamaged);
  const std::string at = osmik::StrUtil::format("0x%016llx:%lld", offset, offset);
  EXPECT_THAT(log.lines(), Contains("<W>TIME [checkAll,L0] read chunk offset(" + at + ") error!"));
}

TEST_F(CheckAll, UnknownChunkTypeReturnsSeven) {
  for (const std::uint16_t type : {std::uint16_t{0}, std::uint16_t{2}, std::uint16_t{0xFFFF}}) {
    const LogCapture log;
    EXPECT_EQ(check(unclosedBag(
                  {{0, "/a"}}, {chunkBytes(type, std::string(36, '\0'), "data"), indexChunk("x")})),
              kDamaged);
    EXPECT_THAT(log.lines(),
                Contains(osmik::StrUtil::format("<W>TIME [checkAll,L0] invalid chunk type: 0x%04x, "
                                                "offset: 0x000000000000105c, reindex abort!",
                                                type)));
  }
}

TEST_F(CheckAll, MessageChunkWithAnotherHeaderSizeReturnsSeven) {
  EXPECT_EQ(check(unclosedBag({{0, "/a"}},
                              {chunkBytes(1, std::string(36, '\0'), "data"), indexChunk("x")})),
            kSound);
  EXPECT_EQ(check(unclosedBag({{0, "/a"}},
                              {chunkBytes(1, std::string(37, '\0'), "data"), indexChunk("x")})),
            kDamaged);
}

TEST_F(CheckAll, SideFileIsNotNeededAndNotChecked) {
  writeFile(path_ + ".index", "no side file at all");
  EXPECT_EQ(check(soundBag()), kSound);
}

TEST_F(CheckAll, BagCutAtAnyLengthIsDamagedUnlessOnlyPaddingIsGone) {
  const std::string bag = soundBag(CompressionType::kLz4);
  const std::size_t end = walkBytes(bag).back().end();
  writeFile(path_, bag);
  for (std::size_t length = end + 1; length > 4000; --length) {
    std::filesystem::resize_file(path_, length);
    ASSERT_EQ(MorvaBag::checkAll(path_), length < end ? kDamaged : kSound) << length;
  }
}

/// What the check has to say of a bag with one byte changed: a checksum or the framing covers every
/// byte but the words that nothing in the file stands for.
class Coverage {
 public:
  explicit Coverage(const std::string& bag) : isFree_(bag.size(), false) {
    const std::vector<RawChunk> chunks = walkBytes(bag);
    for (const RawChunk& chunk : chunks) {
      leaveOut(chunk.offset, 4);                        // the chunk's size
      leaveOut(chunk.offset + 8, chunk.header.size());  // times, count, raw size, topic id
    }
    leaveOut(chunks.back().end(), bag.size() - chunks.back().end());  // padding
  }

  [[nodiscard]] bool covers(std::size_t offset) const { return !isFree_[offset]; }

 private:
  void leaveOut(std::size_t offset, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) isFree_[offset + i] = true;
  }

  std::vector<bool> isFree_;
};

TEST_F(CheckAll, FlippedByteAnywhereUnderAChecksumIsFound) {
  for (const auto codec : {CompressionType::kNone, CompressionType::kZstd}) {
    std::string bag = soundBag(codec);
    const Coverage coverage(bag);
    writeFile(path_, bag);
    const int fd = ::open(path_.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    // The header is the same with every codec.
    const std::size_t first = codec == CompressionType::kNone ? 0 : 4096;
    for (std::size_t i = first; i < bag.size(); ++i) {
      const char flipped = static_cast<char>(bag[i] ^ (1 << i % 8));
      ASSERT_EQ(::pwrite(fd, &flipped, 1, static_cast<off_t>(i)), 1);
      const int code = MorvaBag::checkAll(path_);
      if (coverage.covers(i)) {
        EXPECT_NE(code, kSound) << i;
      }
      ASSERT_EQ(::pwrite(fd, &bag[i], 1, static_cast<off_t>(i)), 1);
    }
    ::close(fd);
    EXPECT_EQ(MorvaBag::checkAll(path_), kSound);
  }
}

TEST_F(CheckAll, FieldsThatLieAreFoundOrHarmless) {
  struct Lie {
    std::size_t offset;  // in the chunk
    std::size_t size;
    int code;
  };
  const std::vector<Lie> lies = {
      {0, 4, kSound},     // chunk size: nothing rests on it
      {4, 2, kDamaged},   // type
      {6, 2, kDamaged},   // header size
      {16, 4, kDamaged},  // raw size: more than the codec can make of the stored bytes
      {20, 4, kSound},    // count word: the caller's
      {40, 4, kSound},    // topic id: the definition chunk does not know it
      {44, 4, kDamaged},  // data size
  };
  const std::string bag = soundBag(CompressionType::kZstd);
  const std::size_t message = walkBytes(bag)[1].offset;
  for (const Lie& lie : lies) {
    std::string changed = bag;
    changed.replace(message + lie.offset, lie.size, lie.size, '\xFF');
    EXPECT_EQ(check(changed), lie.code) << lie.offset;
  }
}

}  // namespace
}  // namespace morva::test
