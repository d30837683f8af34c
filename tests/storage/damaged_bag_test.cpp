// A bag that is cut at every length and damaged at every byte.
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "storage/bag_reader.h"
#include "storage/records.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

const BuiltMessage kImu{.topicId = 1, .stored = "imu payload"};
const BuiltMessage kLidar{.topicId = 0, .stored = std::string(300, 'L'), .count = 7};

class DamagedBag : public testing::Test {
 protected:
  DamagedBag() {
    bag_.topic(1, "/imu").topic(0, "/lidar").message(kImu).message(kLidar).message(kImu);
    bytes_ = bag_.build();
    writeFile(path_, bytes_);
  }
  void putByte(std::size_t at, char byte) {
    std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(at));
    file.put(byte);
  }
  [[nodiscard]] std::int64_t offset(std::size_t i) const {
    return static_cast<std::int64_t>(bag_.chunkOffset(i));
  }
  [[nodiscard]] std::size_t indexEnd() const {
    return bag_.chunkOffset(3) + numberAt<std::uint32_t>(bytes_, bag_.chunkOffset(3));
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  const std::vector<BuiltMessage> messages_ = {kImu, kLidar, kImu};
  BagBuilder bag_;
  std::string bytes_;
};

TEST_F(DamagedBag, EveryFlippedHeaderByteIsNoticed) {
  for (std::size_t at = 0; at < 4096; ++at) {
    putByte(at, static_cast<char>(bytes_[at] ^ 0x10));
    BagReader reader;
    ASSERT_EQ(reader.open(path_), at < 4 ? 7 : 6) << at;
    putByte(at, bytes_[at]);
  }
  BagReader reader;
  EXPECT_EQ(reader.open(path_), 0);
}

TEST_F(DamagedBag, CutAtEveryLengthGivesWhatIsLeft) {
  for (std::size_t size = bytes_.size(); size-- > 0;) {
    if (size > indexEnd() + 2 && size % 512 != 0) continue;  // padding
    std::filesystem::resize_file(path_, size);
    BagReader reader;
    const int code = reader.open(path_);
    ASSERT_EQ(code, size < bag_.dataStart() ? 7 : size < indexEnd() ? 1 : 0) << size;
    if (code > 1) continue;
    for (std::size_t i = 0; i < messages_.size(); ++i) {
      const bool isWhole = size >= bag_.chunkOffset(i + 1);
      const auto length = static_cast<std::int64_t>(messages_[i].stored.size());
      const std::int64_t expected = isWhole ? length : -1;
      std::string data;
      BagFile::Chunk chunk;
      ASSERT_EQ(reader.read(messageIndex(messages_[i], bag_.chunkOffset(i)), &data), expected);
      ASSERT_EQ(reader.read(&chunk, offset(i), nullptr), expected) << size;
      chunk.headerOnly = true;
      ASSERT_EQ(reader.read(&chunk, offset(i), nullptr), expected) << size;
    }
  }
}

TEST_F(DamagedBag, FlippedDataOrChecksumFailsThatMessageAlone) {
  BagReader reader;
  ASSERT_EQ(reader.open(path_), 0);
  constexpr std::size_t kDataAt = 48;
  const std::size_t end = kDataAt + kLidar.stored.size() + 4;
  for (std::size_t at = bag_.chunkOffset(1) + kDataAt; at < bag_.chunkOffset(1) + end; ++at) {
    putByte(at, static_cast<char>(bytes_[at] ^ 1));
    BagReader damaged;
    ASSERT_EQ(damaged.open(path_), 0);
    std::string data;
    BagFile::Chunk chunk;
    ASSERT_EQ(damaged.read(messageIndex(kLidar, bag_.chunkOffset(1)), &data), -1) << at;
    ASSERT_EQ(damaged.read(&chunk, offset(1), nullptr), -1) << at;
    ASSERT_EQ(damaged.read(messageIndex(kImu, bag_.chunkOffset(2)), &data), 11) << at;
    ASSERT_EQ(damaged.read(&chunk, offset(2), nullptr), 11) << at;
    putByte(at, bytes_[at]);
  }
}

TEST_F(DamagedBag, FlippedBytesAnywhereNeverGiveAnotherPayload) {
  for (std::size_t at = 4096; at < indexEnd(); ++at) {
    for (const char mask : {'\x01', '\xFF'}) {
      putByte(at, static_cast<char>(bytes_[at] ^ mask));
      BagReader reader;
      if (reader.open(path_) > 1) continue;
      for (const auto& [id, topic] : reader.topicIndexes()) {
        for (std::size_t i = 0; i < topic->entries.size(); ++i) {
          std::string data;
          if (reader.read(messageIndex(*topic, i), &data) < 0) continue;
          ASSERT_TRUE(data == kImu.stored || data == kLidar.stored) << at;
        }
      }
    }
    putByte(at, bytes_[at]);
  }
}

}  // namespace
}  // namespace morva::test
