#include "platform/compress.h"

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using basalt::Compressor;
using basalt::Lz4Compress;
using basalt::ZstdCompress;

namespace {

constexpr std::size_t kMaxLz4Bytes = 0x7E000000;

std::string randomBytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

/// Something between noise and zeros, like sensor data.
std::string sampleBytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>('a' + random() % 4);
  return bytes;
}

/// The compressed form; empty when the codec refused.
std::string compressed(const Compressor& codec, const std::string& raw) {
  std::string out(codec.bound(raw.size()), '\0');
  const std::int64_t length = codec.compress(raw.data(), raw.size(), out.data(), out.size());
  out.resize(static_cast<std::size_t>(std::max<std::int64_t>(length, 0)));
  return out;
}

std::int64_t restore(const Compressor& codec, const std::string& stored, std::size_t rawSize,
                     std::string* out) {
  return codec.decompress(stored.data(), stored.size(), rawSize, out);
}

class Codec : public testing::TestWithParam<const char*> {
 protected:
  static std::unique_ptr<Compressor> make() {
    if (std::string(GetParam()) == "lz4") return std::make_unique<Lz4Compress>();
    return std::make_unique<ZstdCompress>();
  }
  const std::unique_ptr<Compressor> codec_ = make();
};

INSTANTIATE_TEST_SUITE_P(Compress, Codec, testing::Values("lz4", "zstd"),
                         [](const auto& codec) { return std::string(codec.param); });

}  // namespace

TEST_P(Codec, RestoresWhatItCompressed) {
  for (std::size_t size = 16; size < 4'000'000; size = size * 3 + 1) {
    const std::string raw = sampleBytes(size, static_cast<unsigned>(size));
    const std::string stored = compressed(*codec_, raw);
    if (stored.empty()) continue;  // too short to shrink
    EXPECT_LT(stored.size(), raw.size());
    std::string out = "left over from before";
    ASSERT_EQ(restore(*codec_, stored, raw.size(), &out), static_cast<std::int64_t>(raw.size()));
    ASSERT_EQ(out, raw);
  }
}

TEST_P(Codec, RestoresFromOutputLongerThanThePayload) {
  const std::string raw(1000, 'x');
  std::string out(5'000'000, 'y');
  EXPECT_EQ(restore(*codec_, compressed(*codec_, raw), raw.size(), &out), 1000);
  EXPECT_EQ(out, raw);
}

TEST_P(Codec, RefusesToCompressNoise) {
  for (const std::size_t size : {1U, 2U, 100U, 70'000U}) {
    EXPECT_EQ(compressed(*codec_, randomBytes(size, 3)), "") << size;
  }
}

TEST_P(Codec, NeverGivesAnOutputAsLongAsItsInput) {
  // Short runs, where the framing of the codec eats what it saves.
  for (std::size_t size = 1; size < 200; ++size) {
    const std::string stored = compressed(*codec_, std::string(size, 'r'));
    EXPECT_LT(stored.size(), size) << size;
  }
}

TEST_P(Codec, RefusesToCompressNothing) {
  char out = 0;
  EXPECT_LT(codec_->compress("", 0, &out, 1), 1);
}

TEST_P(Codec, FailsWhereTheOutputBufferIsTooSmall) {
  const std::string raw = sampleBytes(10'000, 4);
  const std::string stored = compressed(*codec_, raw);
  ASSERT_FALSE(stored.empty());
  std::string out(stored.size() / 2, '\0');
  EXPECT_LT(codec_->compress(raw.data(), raw.size(), out.data(), out.size()), 1);
}

TEST_P(Codec, RefusesEveryCutOffInput) {
  const std::string raw = sampleBytes(3000, 5);
  const std::string stored = compressed(*codec_, raw);
  for (std::size_t size = 0; size < stored.size(); ++size) {
    std::string out;
    const std::int64_t length = restore(*codec_, stored.substr(0, size), raw.size(), &out);
    // LZ4 blocks carry no length: a cut at a sequence's end restores the beginning.
    EXPECT_LT(length, static_cast<std::int64_t>(raw.size())) << size;
    if (length >= 1) {
      EXPECT_EQ(out, raw.substr(0, static_cast<std::size_t>(length)));
    }
  }
}

TEST_P(Codec, SurvivesFlippedBytes) {
  const std::string raw = sampleBytes(2000, 6);
  const std::string stored = compressed(*codec_, raw);
  std::mt19937 random(7);
  for (int i = 0; i < 5000; ++i) {
    std::string damaged = stored;
    damaged[random() % damaged.size()] = static_cast<char>(random());
    damaged[random() % damaged.size()] = static_cast<char>(random());
    std::string out;
    const std::int64_t length = restore(*codec_, damaged, raw.size(), &out);
    ASSERT_LE(length, static_cast<std::int64_t>(codec_->bound(raw.size())));
  }
}

TEST_P(Codec, TakesNoMemoryForImpossibleRawSize) {
  const std::string stored = compressed(*codec_, std::string(1000, 'x'));
  ASSERT_FALSE(stored.empty());
  for (const std::size_t lie : {std::size_t{0xFFFFFFFF}, std::size_t{0x7FFFFFFF}, kMaxLz4Bytes,
                                std::size_t{64} << 20, ~std::size_t{0}}) {
    std::string out;
    EXPECT_LT(restore(*codec_, stored, lie, &out), 1) << lie;
    EXPECT_LT(out.capacity(), 1U << 20) << lie;
  }
}

TEST_P(Codec, RefusesRawSizeZeroAndEmptyInput) {
  const std::string stored = compressed(*codec_, std::string(1000, 'x'));
  std::string out;
  EXPECT_LT(restore(*codec_, "", 10, &out), 1);
  EXPECT_LT(restore(*codec_, stored, 0, &out), 1);
}

TEST_P(Codec, ServesManyThreadsAtOnce) {
  std::vector<std::jthread> threads;
  for (unsigned seed = 0; seed < 4; ++seed) {
    threads.emplace_back([this, seed] {
      for (unsigned round = 0; round < 20; ++round) {
        const std::string raw = sampleBytes(20'000 + 1000 * round, seed * 100 + round);
        std::string out;
        ASSERT_EQ(restore(*codec_, compressed(*codec_, raw), raw.size(), &out),
                  static_cast<std::int64_t>(raw.size()));
        ASSERT_EQ(out, raw);
      }
    });
  }
}

TEST(Lz4CompressBound, CoversBothFormsUpToTheLimit) {
  const Lz4Compress codec;
  EXPECT_EQ(codec.bound(0), 16U);
  EXPECT_GE(codec.bound(1000), 1000U + 1000 / 255);
  EXPECT_GT(codec.bound(kMaxLz4Bytes), kMaxLz4Bytes);
  EXPECT_EQ(codec.bound(kMaxLz4Bytes + 1), 0U);
  EXPECT_EQ(codec.bound(0xFFFFFFFF), 0U);
}

TEST(ZstdCompressBound, CoversBothForms) {
  const ZstdCompress codec;
  EXPECT_GT(codec.bound(0), 0U);
  EXPECT_GE(codec.bound(1'000'000), 1'000'000U);
}

TEST(Lz4CompressDecompress, AcceptsTheHighestRatioThatLz4Reaches) {
  const Lz4Compress codec;
  const std::string raw(2'000'000, '\0');
  const std::string stored = compressed(codec, raw);
  EXPECT_GT(raw.size() / stored.size(), 250U);
  std::string out;
  EXPECT_EQ(restore(codec, stored, raw.size(), &out), 2'000'000);
  EXPECT_EQ(out, raw);
}

TEST(Lz4CompressDecompress, RefusesRawSizeAboveTheRatio) {
  const Lz4Compress codec;
  const std::string stored = compressed(codec, std::string(1000, 'x'));
  std::string out;
  EXPECT_EQ(restore(codec, stored, 255 * stored.size() + 255, &out), -1);
  EXPECT_EQ(out.capacity(), std::string().capacity());
}

TEST(Lz4CompressDecompress, ReadsABlockWrittenByHand) {
  // Token 0x1F: one literal 'a', then a match of 15 + 4 + 1 at distance 1; last five literals
  // "bcdef".
  const std::string block(
      "\x1F\x61\x01\x00\x01\x50"
      "bcdef",
      11);
  std::string out;
  EXPECT_EQ(restore(Lz4Compress(), block, 26, &out), 26);
  EXPECT_EQ(out, std::string(21, 'a') + "bcdef");
}

/// A frame of so many blocks, each 128 KiB of one byte, stored in 4 bytes.
std::string zstdBomb(std::uint64_t blocks) {
  // Magic, a content size of 8 bytes behind a window descriptor of 128 KiB.
  std::string frame("\x28\xB5\x2F\xFD\xC0\x38", 6);
  for (int i = 0; i < 8; ++i) frame += static_cast<char>(blocks * (128 * 1024) >> (8 * i) & 0xFF);
  for (std::uint64_t i = 1; i <= blocks; ++i) {
    const std::uint32_t header = (i == blocks ? 1U : 0U) | 1U << 1 | (128U * 1024) << 3;
    for (int byte = 0; byte < 3; ++byte) frame += static_cast<char>(header >> (8 * byte) & 0xFF);
    frame += 'x';
  }
  return frame;
}

TEST(ZstdCompressDecompress, BombTakesNoMemory) {
  constexpr std::size_t kBlockBytes = 128UL * 1024;
  const ZstdCompress codec;
  for (const std::size_t blocks : {std::size_t{513}, std::size_t{8192}, std::size_t{32767}}) {
    std::string out;
    EXPECT_EQ(restore(codec, zstdBomb(blocks), blocks * kBlockBytes, &out), -1) << blocks;
    EXPECT_EQ(out.capacity(), std::string().capacity());
  }
  std::string out;
  EXPECT_EQ(restore(codec, zstdBomb(512), 512 * kBlockBytes, &out), 512 * kBlockBytes);
}

TEST(ZstdCompressCompress, LeavesWhatWouldPassForABomb) {
  const ZstdCompress codec;
  EXPECT_EQ(compressed(codec, std::string(65 << 20, 'x')), "");
  EXPECT_NE(compressed(codec, std::string(64 << 20, 'x')), "");
}

TEST(ZstdCompressDecompress, ReadsAFrameWrittenByHand) {
  // Magic, single segment with a one-byte content size of 5, one last raw block of 5 bytes.
  const std::string frame("\x28\xB5\x2F\xFD\x20\x05\x29\x00\x00hello", 14);
  std::string out;
  EXPECT_EQ(restore(ZstdCompress(), frame, 5, &out), 5);
  EXPECT_EQ(out, "hello");
}

TEST(ZstdCompressDecompress, RefusesContentSizeThatDiffersFromRawSize) {
  const ZstdCompress codec;
  const std::string raw(1000, 'x');
  const std::string stored = compressed(codec, raw);
  for (const std::size_t lie : {1U, 999U, 1001U, 2000U}) {
    std::string out;
    EXPECT_EQ(restore(codec, stored, lie, &out), -1) << lie;
  }
}

TEST(ZstdCompressDecompress, RefusesFrameWithoutContentSize) {
  // Magic, window descriptor instead of a content size, one last raw block.
  const std::string frame("\x28\xB5\x2F\xFD\x00\x58\x29\x00\x00hello", 14);
  std::string out;
  EXPECT_EQ(restore(ZstdCompress(), frame, 5, &out), -1);
}

TEST(ZstdCompressDecompress, RefusesBytesBehindTheFrame) {
  const ZstdCompress codec;
  const std::string stored = compressed(codec, std::string(1000, 'x'));
  std::string out;
  EXPECT_EQ(restore(codec, stored + "!", 1000, &out), -1);
  EXPECT_EQ(restore(codec, stored + stored, 1000, &out), -1);
}

TEST(ZstdCompressDecompress, TakesOnlyWhatAShortFrameReallyRestores) {
  // A frame that promises 1 GiB and holds 100 KiB of blocks, few enough for the ratio not to show
  // it: single segment with an eight-byte content size, then a raw block.
  constexpr std::uint64_t kPromised = 1U << 30;
  std::string frame("\x28\xB5\x2F\xFD\xC0", 5);  // window descriptor follows: not a single segment
  frame += '\x58';
  for (int i = 0; i < 8; ++i) frame += static_cast<char>(kPromised >> (8 * i) & 0xFF);
  constexpr std::uint32_t kBlockBytes = 100 * 1024;
  for (int i = 0; i < 3; ++i) frame += static_cast<char>((kBlockBytes << 3 | 1U) >> (8 * i) & 0xFF);
  frame += std::string(kBlockBytes, 'b');
  std::string out;
  EXPECT_EQ(restore(ZstdCompress(), frame, kPromised, &out), -1);
  EXPECT_LE(out.capacity(), 2U << 20);
}
