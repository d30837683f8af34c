#include "kit/doctor/chunk_finder.h"

#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/bag_builder.h"
#include "support/failing_file_calls.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using doctor::ByteSource;
using doctor::ChunkFinder;
using doctor::FoundChunk;
using doctor::FoundChunks;
using testing::ElementsAre;
using testing::IsEmpty;

class ChunkFinderTest : public testing::Test {
 protected:
  FoundChunks find(const std::string& bytes, std::size_t blockBytes = 1024UL * 1024) {
    writeFile(path_, bytes);
    ByteSource source;
    EXPECT_TRUE(source.open(path_));
    return ChunkFinder(&source, blockBytes).find([](double) { return true; });
  }

  static std::vector<std::uint64_t> offsetsOf(const std::vector<FoundChunk>& chunks) {
    std::vector<std::uint64_t> offsets;
    for (const FoundChunk& chunk : chunks) offsets.push_back(chunk.offset);
    return offsets;
  }

  TempDir dir_;
  std::string path_ = dir_ / "x";
};

const std::string kMessage = messageChunk({.topicId = 3, .stored = "hello", .count = 7});
const std::string kEmpty = messageChunk({.topicId = 3, .stored = ""});
const std::string kDefinition = chunkBytes(0, timedChunkHeader(64), topicRecord(1, "/imu"));
const std::string kIndex = chunkBytes(255, timedChunkHeader(4), "abcd");

/// The framing of a message that claims `storedSize` bytes of data.
std::string claim(std::uint32_t storedSize) {
  std::string framing = messageChunk({.topicId = 0, .stored = ""}).substr(0, 48);
  patch<std::uint32_t>(&framing, 0, storedSize + 52);
  patch<std::uint32_t>(&framing, 44, storedSize);
  return framing;
}

}  // namespace

TEST_F(ChunkFinderTest, ChunksOfEveryTypeAreFoundWhereverTheyLie) {
  const std::string bytes = "x" + kDefinition + kMessage + "gap" + kEmpty + kIndex + "tail";
  const std::size_t first = 1 + kDefinition.size();
  const std::size_t second = first + kMessage.size() + 3;
  const FoundChunks found = find(bytes);
  EXPECT_THAT(offsetsOf(found.sound), ElementsAre(1, first, second, second + kEmpty.size()));
  EXPECT_THAT(found.torn, IsEmpty());
  EXPECT_EQ(found.sound[0].type, 0);
  EXPECT_EQ(found.sound[0].header.rawSize, 64U);
  EXPECT_EQ(found.sound[1].type, 1);
  EXPECT_EQ(found.sound[1].header.topicId, 3);
  EXPECT_EQ(found.sound[1].header.count, 7U);
  EXPECT_EQ(found.sound[1].header.storedSize, 5U);
  EXPECT_EQ(found.sound[1].crc, referenceCrc32("hello"));
  EXPECT_EQ(found.sound[1].end(), first + kMessage.size());
  EXPECT_EQ(found.sound[3].type, 255);
}

TEST_F(ChunkFinderTest, ResultDoesNotDependOnTheBlocks) {
  std::string bytes;
  for (int i = 0; i < 20; ++i) {
    bytes += messageChunk({.topicId = 1, .stored = std::string(static_cast<std::size_t>(i), 'a')});
    bytes += std::string(static_cast<std::size_t>(i % 7), '\x24');
  }
  const auto expected = offsetsOf(find(bytes).sound);
  EXPECT_EQ(expected.size(), 20U);
  for (std::size_t block = 1; block < 130; ++block) {
    EXPECT_EQ(offsetsOf(find(bytes, block).sound), expected) << block;
  }
}

TEST_F(ChunkFinderTest, ChunksWithinAChunkAreFoundToo) {
  const std::string outer = messageChunk({.stored = kMessage + kDefinition});
  EXPECT_THAT(offsetsOf(find(outer).sound), ElementsAre(0, 48, 48 + kMessage.size()));
}

TEST_F(ChunkFinderTest, DamagedPayloadIsTorn) {
  std::string bytes = kMessage;
  bytes[48] ^= 1;
  const FoundChunks found = find(bytes);
  EXPECT_THAT(found.sound, IsEmpty());
  EXPECT_THAT(offsetsOf(found.torn), ElementsAre(0));
}

TEST_F(ChunkFinderTest, EachFramingByteMatters) {
  for (const std::size_t i : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 44U, 45U, 46U, 47U}) {
    std::string bytes = kMessage + std::string(70'000, 'x');
    bytes[i] ^= 1;
    EXPECT_THAT(find(bytes).sound, IsEmpty()) << i;
  }
}

TEST_F(ChunkFinderTest, ChunkThatIsCutOffIsNeither) {
  for (std::size_t size = 0; size < kMessage.size(); ++size) {
    const FoundChunks found = find(kMessage.substr(0, size));
    EXPECT_THAT(found.sound, IsEmpty()) << size;
    EXPECT_THAT(found.torn, IsEmpty()) << size;
  }
}

TEST_F(ChunkFinderTest, ClaimsUponTheWholeFileCostNoMoreThanOnePass) {
  // Every 12 bytes, something claims all that follows: 20,000 checksums of half a file each would
  // take 2.4 GB.
  constexpr std::uint32_t kPeriod = 12;
  constexpr std::uint32_t kClaims = 20'000;
  std::string bytes;
  for (std::uint32_t i = 0; i < kClaims; ++i) {
    // A claim's data size is the third word of the chunk three periods behind it.
    const std::uint32_t own = (kClaims - i) * kPeriod - 52;
    const std::uint32_t other = (kClaims - i + 3) * kPeriod - 52;
    bytes += le<std::uint32_t>(own + 52) + le<std::uint16_t>(1) + le<std::uint16_t>(36) +
             le<std::uint32_t>(other);
  }
  bytes += kMessage;
  const FoundChunks found = find(bytes);
  EXPECT_THAT(offsetsOf(found.sound), ElementsAre(kClaims * kPeriod));
  EXPECT_GT(found.torn.size(), kClaims - 10);
}

TEST_F(ChunkFinderTest, TooManyClaimsLoseTheFarthestAlone) {
  std::string bytes;
  const std::string sound = messageChunk({.stored = std::string(100, 's')});
  const std::size_t claims = ChunkFinder::kMaxOpenClaims + 100;
  const std::size_t total = claims * 48 + sound.size() + 1000;
  for (std::size_t i = 0; i < claims; ++i) {
    bytes += claim(static_cast<std::uint32_t>(total - i * 48 - 52));
  }
  bytes += sound + std::string(1000, 'x');
  const FoundChunks found = find(bytes);
  EXPECT_THAT(offsetsOf(found.sound), ElementsAre(claims * 48));
  EXPECT_LE(found.torn.size(), ChunkFinder::kMaxTorn);
}

TEST_F(ChunkFinderTest, UnreadableSectorsAreNotedAndPassed) {
  const std::string bytes = kMessage + std::string(3 * 4096, 'x') + kMessage;
  writeFile(path_, bytes);
  FailingFileCalls disk;
  ByteSource source;
  ASSERT_TRUE(source.open(path_));
  // The read of all fails, and then that of the first sector alone.
  disk.fail(FailingFileCalls::Call::kPread, 1, 2, EIO);
  const FoundChunks found = ChunkFinder(&source).find([](double) { return true; });
  EXPECT_THAT(offsetsOf(found.sound), ElementsAre(bytes.size() - kMessage.size()));
  ASSERT_EQ(source.unreadable().size(), 1U);
  EXPECT_EQ(source.unreadable()[0].begin, 0U);
  EXPECT_EQ(source.unreadable()[0].end, 4096U);
}

TEST_F(ChunkFinderTest, EndsWhenItIsTold) {
  writeFile(path_, kMessage);
  ByteSource source;
  ASSERT_TRUE(source.open(path_));
  EXPECT_FALSE(ChunkFinder(&source).find([](double) { return false; }).isComplete);
}

}  // namespace morva::test
