// The search for the next chunk after damage.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/str_util.h"
#include "storage/bag_reader.h"
#include "storage/records.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using osmik::StrUtil;

constexpr std::uint64_t kBodyAt = 4096 + 28;  // behind an empty definition chunk

/// A reader of a bag whose messages are replaced by bytes of the test.
class BagReaderSearch : public testing::Test {
 protected:
  void open(const std::string& body) {
    writeFile(path_, BagBuilder().buildUnclosed() + body);
    ASSERT_EQ(reader_.open(path_), 1);
    log_.clear();
  }
  std::int64_t search(std::uint64_t offset) {
    next_ = -7;
    return reader_.readNextChunk(&chunk_, static_cast<std::int64_t>(offset), &next_);
  }
  static Lines found(std::uint64_t position, std::size_t match, std::size_t length) {
    const std::string place = "BagReader::readNextChunk";
    return {infoLine(place, StrUtil::format("---current offset:0x%016llx, start:%d(%d)", position,
                                            match, length)),
            infoLine(place, StrUtil::format("find new chunk at offset: 0x%016llx",
                                            position - length + match))};
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  LogCapture log_;
  BagReader reader_;
  BagFile::Chunk chunk_;
  std::int64_t next_ = 0;
};

constexpr std::size_t kChunkBytes = 0x0301;
constexpr std::size_t kDataBytes = kChunkBytes - 28;

/// A chunk that begins with a byte 0x01, of its size word, and has no other one.
std::string chunkThatBeginsWithTheMark() {
  return chunkBytes(2, std::string(8, 'h') + le<std::uint32_t>(kDataBytes),
                    std::string(kDataBytes, 'd'));
}

TEST_F(BagReaderSearch, ChunkWhoseSizeWordBeginsWithTheMarkIsRead) {
  const std::string chunk = chunkThatBeginsWithTheMark();
  ASSERT_EQ(chunk.rfind('\x01'), 0U);
  open(std::string(100, 'x') + chunk + std::string(50, 'y'));
  EXPECT_EQ(search(kBodyAt), std::int64_t{kDataBytes});
  EXPECT_EQ(chunk_.type, 2);
  EXPECT_EQ(chunk_.data, std::string(kDataBytes, 'd'));
  EXPECT_EQ(next_, static_cast<std::int64_t>(kBodyAt + 100 + kChunkBytes));
  EXPECT_EQ(log_.lines(), found(kBodyAt + 150 + kChunkBytes, 100, 150 + kChunkBytes));
}

TEST_F(BagReaderSearch, LastMarkOfTheStepIsTakenAndReadAsAChunkStart) {
  open(std::string(10, 'x') + '\x01' + std::string(10, 'x') + '\x01' + std::string(7, 'x'));
  EXPECT_EQ(search(kBodyAt), -1);
  Lines expected = found(kBodyAt + 29, 21, 29);
  expected.push_back(errorLine("BagReader::read", "read chunk header error, ret: 0!"));
  EXPECT_EQ(log_.lines(), expected);
}

TEST_F(BagReaderSearch, SearchBeginsAtTheOffset) {
  open('\x01' + std::string(100, 'x'));
  EXPECT_EQ(search(kBodyAt + 1), -1);
  EXPECT_EQ(log_.lines(), Lines());
}

TEST_F(BagReaderSearch, EndOfFileIsMinusOneWithoutALine) {
  open(std::string(5000, 'x'));
  EXPECT_EQ(search(kBodyAt), -1);
  EXPECT_EQ(search(kBodyAt + 5000), -1);
  EXPECT_EQ(search(kBodyAt + 50'000), -1);
  EXPECT_EQ(log_.lines(), Lines());
}

TEST_F(BagReaderSearch, FailedReadIsMinusOneWithoutALine) {
  open(std::string(200'000, 'x') + chunkThatBeginsWithTheMark());
  FailingFileCalls calls;
  calls.fail(FailingFileCalls::Call::kPread, 1, 1, EIO);
  EXPECT_EQ(search(kBodyAt + 100'000), -1);
  EXPECT_EQ(log_.lines(), Lines());
}

TEST_F(BagReaderSearch, StepsOf1024BytesGoOnUntilAMarkIsFound) {
  open(std::string(1500, 'x') + '\x01' + std::string(100'000, 'x'));
  EXPECT_EQ(search(kBodyAt), -1);
  EXPECT_EQ(log_.lines().at(0), found(kBodyAt + 2048, 1500, 2048)[0]);
  EXPECT_EQ(log_.lines().at(1), found(kBodyAt + 2048, 1500, 2048)[1]);
}

TEST_F(BagReaderSearch, MarkInALaterStepWinsOnlyIfTheEarlierStepHasNone) {
  open(std::string(10, 'x') + '\x01' + std::string(1100, 'x') + '\x01' + std::string(4000, 'x'));
  EXPECT_EQ(search(kBodyAt), -1);
  EXPECT_EQ(log_.lines().at(1), found(kBodyAt + 1024, 10, 1024)[1]);
}

TEST_F(BagReaderSearch, SearchBufferDropsWhatItHasSearched) {
  // Five steps pass 4099 bytes: 4096 are dropped, 1024 stay.
  open(std::string(5 * 1024 + 100, 'x') + chunkThatBeginsWithTheMark() + std::string(3000, 'y'));
  EXPECT_EQ(search(kBodyAt), std::int64_t{kDataBytes});
  EXPECT_EQ(log_.lines(), found(kBodyAt + 6 * 1024, 1024 + 100, 2048));
}

TEST_F(BagReaderSearch, LongStretchWithoutAMarkIsSearchedInFixedMemory) {
  open(std::string(1'000'000, 'x') + chunkThatBeginsWithTheMark());
  EXPECT_EQ(search(kBodyAt), std::int64_t{kDataBytes});
  EXPECT_EQ(next_, static_cast<std::int64_t>(kBodyAt + 1'000'000 + kChunkBytes));
}

TEST_F(BagReaderSearch, HeaderOnlyIsPassedOn) {
  open(std::string(100, 'x') + chunkThatBeginsWithTheMark());
  chunk_.headerOnly = true;
  EXPECT_EQ(search(kBodyAt), std::int64_t{kDataBytes});
  EXPECT_EQ(chunk_.data, "");
}

TEST_F(BagReaderSearch, ClosedReaderNullChunkAndBadOffsetsAreParamErrors) {
  const std::string place = "BagReader::readNextChunk";
  EXPECT_EQ(search(kBodyAt), -1);
  EXPECT_EQ(log_.lines(), Lines{errorLine(place, "offset: 4124, param error!")});
  open(chunkThatBeginsWithTheMark());
  EXPECT_EQ(reader_.readNextChunk(nullptr, 4124, nullptr), -1);
  EXPECT_EQ(reader_.readNextChunk(&chunk_, 0, nullptr), -1);
  EXPECT_EQ(reader_.readNextChunk(&chunk_, -5, nullptr), -1);
  EXPECT_EQ(log_.lines(), (Lines{errorLine(place, "offset: 4124, param error!"),
                                 errorLine(place, "offset: 0, param error!"),
                                 errorLine(place, "offset: -5, param error!")}));
}

}  // namespace
}  // namespace morva::test
