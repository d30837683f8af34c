#include "storage/bag_writer.h"

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "storage/bag_reader.h"
#include "storage/raw_bag.h"
#include "storage/records.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using Call = FailingFileCalls::Call;

const std::string kNoSpace = "No space left on device";
const std::string kIoError = "Input/output error";

/// A writer without a write buffer, so that every piece of a chunk is a system call of its own:
/// prefix, payload, checksum.
class BagWriterTest : public testing::Test {
 protected:
  void openWithTopics(const std::vector<std::string>& topics = {"/a", "/b"}) {
    ASSERT_EQ(writer_.open(path_), 0);
    ASSERT_TRUE(writer_.setTopics(topics));
  }
  std::int64_t write(const std::string& payload, const std::string& topic = "/a") {
    return writer_.write(entryOf(payload, false), topic, payload);
  }
  /// The payloads of the messages that a walk over the file's chunks finds.
  [[nodiscard]] std::vector<std::string> payloadsInFile() const {
    std::vector<std::string> payloads;
    for (const RawChunk& chunk : takeApart(readFile(path_)).chunks) {
      if (chunk.type == 1) payloads.push_back(chunk.data);
    }
    return payloads;
  }
  /// The payloads that the reader finds through the index of topic "/a".
  [[nodiscard]] std::vector<std::string> payloadsInIndex() const {
    BagReader reader;
    EXPECT_EQ(reader.open(path_), 0);
    const auto topic = reader.topicIndex("/a");
    std::vector<std::string> payloads;
    for (std::size_t i = 0; topic && i < topic->entries.size(); ++i) {
      payloads.emplace_back();
      EXPECT_GE(reader.read(messageIndex(*topic, i), &payloads.back()), 0);
    }
    return payloads;
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  FailingFileCalls calls_;
  const LogCapture log_;
  BagWriter writer_{CompressionType::kNone, 0, ""};
};

using Payloads = std::vector<std::string>;

TEST_F(BagWriterTest, OpenOfMissingDirectoryReturnsFour) {
  const std::string path = dir_ / "none" + "/a.kbag";
  EXPECT_EQ(writer_.open(path), 4);
  EXPECT_EQ(log_.lines(), Lines{errorLine("BagWriter::open", "open file(" + path + ") error!")});
  EXPECT_EQ(writer_.open(path_), 0);  // can be tried again
}

TEST_F(BagWriterTest, OpenWithTooMuchPrivateDataReturnsEight) {
  BagWriter writer(CompressionType::kNone, 0, std::string(4057, 'p'));
  EXPECT_EQ(writer.open(path_), 8);
  EXPECT_EQ(log_.lines(), Lines{errorLine("BagWriter::open", "private data size(4057) error!")});
  EXPECT_EQ(readFile(path_), "");
}

TEST_F(BagWriterTest, OpenReturnsEightWhereTheHeaderCannotBeWritten) {
  for (const std::uint32_t buffer : {0U, 100'000U}) {
    calls_.fail(Call::kPwrite, 1, 2);  // the header, and again as the file is dropped
    BagWriter writer(CompressionType::kNone, buffer, "");
    EXPECT_EQ(writer.open(path_), 8);
  }
  const Lines once = {errorLine("BagWriter::updateHeader", "write file header error!"),
                      errorLine("BagWriter::open", "update header error!")};
  EXPECT_EQ(log_.lines(), (Lines{once[0], once[1], once[0], once[1]}));
}

TEST_F(BagWriterTest, OpenReturnsEightWhereHalfTheHeaderFits) {
  calls_.limitFileBytes(2000);
  EXPECT_EQ(writer_.open(path_), 8);
  EXPECT_EQ(readFile(path_).size(), 2000U);
  calls_.limitFileBytes(-1);
  EXPECT_EQ(writer_.open(path_), 0);
  EXPECT_TRUE(writer_.setTopics({"/a"}));
  EXPECT_TRUE(writer_.close());
}

TEST_F(BagWriterTest, OpenOfAnOpenWriterTouchesNeitherFile) {
  openWithTopics();
  const std::string before = readFile(path_);
  EXPECT_EQ(writer_.open(dir_ / "b.kbag"), 0);
  EXPECT_FALSE(osmik::File::exists(dir_ / "b.kbag"));
  EXPECT_EQ(writer_.open(path_), 0);
  EXPECT_EQ(readFile(path_), before);
}

TEST_F(BagWriterTest, WriterCanBeUsedForBagAfterBag) {
  openWithTopics({"/old", "/a"});
  EXPECT_EQ(write("one"), 3);
  EXPECT_TRUE(writer_.close());
  ASSERT_EQ(writer_.open(path_), 0);
  EXPECT_EQ(write("x", "/old"), -1);  // topics belong to one bag
  ASSERT_TRUE(writer_.setTopics({"/a"}));
  EXPECT_EQ(write("two"), 3);
  EXPECT_TRUE(writer_.close());
  EXPECT_EQ(payloadsInIndex(), Payloads{"two"});
}

TEST_F(BagWriterTest, DestructionClosesTheBag) {
  {
    BagWriter writer(CompressionType::kNone, 1 << 16, "");
    ASSERT_EQ(writer.open(path_), 0);
    ASSERT_TRUE(writer.setTopics({"/a"}));
    ASSERT_EQ(writer.write(entryOf("kept", false), "/a", "kept"), 4);
  }
  EXPECT_EQ(payloadsInIndex(), Payloads{"kept"});
}

TEST_F(BagWriterTest, CloseWithoutFileIsTrueAndSilent) {
  EXPECT_TRUE(writer_.close());
  EXPECT_EQ(log_.lines(), Lines());
}

TEST_F(BagWriterTest, SetTopicsWithoutFileFails) {
  EXPECT_FALSE(writer_.setTopics({"/a"}));
  EXPECT_EQ(log_.lines(),
            (Lines{errorLine("BagWriter::writeChunk", "file() not open!"),
                   errorLine("BagWriter::setTopics", "write definition chunk error!")}));
}

TEST_F(BagWriterTest, SecondSetTopicsIsRefusedAndChangesNothing) {
  openWithTopics();
  EXPECT_EQ(write("one"), 3);
  EXPECT_FALSE(writer_.setTopics({"/c"}));
  EXPECT_TRUE(log_.contains(errorLine("BagWriter::setTopics", "write definition chunk error!")));
  EXPECT_EQ(write("two"), 3);
  EXPECT_TRUE(writer_.close());
  EXPECT_EQ(payloadsInIndex(), (Payloads{"one", "two"}));
}

TEST_F(BagWriterTest, FailedDefinitionChunkLeavesNoTopicToWriteTo) {
  for (const int part : {1, 2, 3}) {  // prefix, records, checksum
    BagWriter writer(CompressionType::kNone, 0, "");
    ASSERT_EQ(writer.open(path_), 0);
    calls_.fail(Call::kPwrite, part, 1);
    EXPECT_FALSE(writer.setTopics({"/a"}));
    EXPECT_TRUE(log_.contains(errorLine("BagWriter::setTopics", "write definition chunk error!")));
    EXPECT_EQ(writer.write(entryOf("x", false), "/a", "x"), -1);
    EXPECT_TRUE(log_.contains(errorLine("BagWriter::write", "invalid topic [/a](0)!")));
    EXPECT_EQ(readFile(path_).size(), 4096U);

    EXPECT_TRUE(writer.setTopics({"/a"}));  // there is room again
    EXPECT_EQ(writer.write(entryOf("x", false), "/a", "x"), 1);
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(payloadsInIndex(), Payloads{"x"});
  }
}

TEST_F(BagWriterTest, DefinitionChunkThatCannotLeaveTheBufferFails) {
  BagWriter writer(CompressionType::kNone, 1 << 16, "");
  ASSERT_EQ(writer.open(path_), 0);
  calls_.fail(Call::kPwrite, 1, 1);
  EXPECT_FALSE(writer.setTopics({"/a"}));
  EXPECT_EQ(log_.lines(),
            Lines{errorLine("BagWriter::setTopics", "write definition chunk error!")});
  EXPECT_TRUE(writer.setTopics({"/a"}));
  EXPECT_TRUE(writer.close());
  EXPECT_EQ(takeApart(readFile(path_)).chunks.size(), 2U);
}

TEST_F(BagWriterTest, UnknownTopicIsRefusedWithTheTopicCount) {
  openWithTopics();
  EXPECT_EQ(write("x", "/c"), -1);
  EXPECT_EQ(log_.lines(), Lines{errorLine("BagWriter::write", "invalid topic [/c](2)!")});
  EXPECT_EQ(payloadsInFile(), Payloads());
}

TEST_F(BagWriterTest, WriteAfterCloseFails) {
  openWithTopics();
  EXPECT_TRUE(writer_.close());
  const std::string before = readFile(path_);
  EXPECT_EQ(write("x"), -1);
  EXPECT_TRUE(log_.contains(errorLine("BagWriter::writeChunk", "file(" + path_ + ") not open!")));
  EXPECT_TRUE(log_.contains(errorLine("BagWriter::write", "write topic data chunk error!")));
  EXPECT_EQ(readFile(path_), before);
}

TEST_F(BagWriterTest, WriteReturnsThePayloadLength) {
  openWithTopics();
  EXPECT_EQ(write(""), 0);
  EXPECT_EQ(write(std::string(70'000, 'x')), 70'000);
  EXPECT_EQ(payloadsInFile(), (Payloads{"", std::string(70'000, 'x')}));
}

TEST_F(BagWriterTest, IndexKeepsEachMessageOfEachTopic) {
  openWithTopics();
  EXPECT_EQ(write("one"), 3);
  EXPECT_EQ(write("second", "/b"), 6);
  EXPECT_EQ(write("three"), 5);
  const auto index = writer_.topicIndex("/a");
  ASSERT_TRUE(index);
  constexpr std::uint64_t kStart = 4096 + 28 + 128;
  EXPECT_EQ(index->chunkOffsets, (std::vector<std::uint64_t>{kStart, kStart + 55 + 58}));
  EXPECT_EQ(index->countSum, 2U);
  EXPECT_EQ(index->rawSizeSum, 8U);
  EXPECT_EQ(index->entries.at(1).topicId, 0);
  EXPECT_EQ(index->entries.at(1).storedSize, 5U);
  EXPECT_EQ(writer_.topicIndex("/b")->entries.at(0).topicId, 1);
  EXPECT_EQ(writer_.topicIndex("/c"), nullptr);
}

TEST_F(BagWriterTest, ChunkThatFailedHalfWayIsCutOff) {
  const Lines expected[] = {
      {errorLine("BagWriter::writeChunk", "write chunk head error: " + kNoSpace + "!"),
       errorLine("BagWriter::write", "write topic data chunk error!")},
      {errorLine("BagWriter::writeChunk", "write chunk head error: " + kNoSpace + "!"),
       errorLine("BagWriter::write", "write topic data chunk error!")},
      {errorLine("BagWriter::writeChunk", "write chunk crc32 error: " + kNoSpace + "!"),
       errorLine("BagWriter::write", "write topic data chunk error!")}};
  for (const int part : {1, 2, 3}) {  // prefix, payload, checksum
    BagWriter writer(CompressionType::kNone, 0, "");
    ASSERT_EQ(writer.open(path_), 0);
    ASSERT_TRUE(writer.setTopics({"/a"}));
    ASSERT_EQ(writer.write(entryOf("before", false), "/a", "before"), 6);
    const std::string bytes = readFile(path_);
    const LogCapture log;
    calls_.fail(Call::kPwrite, part, 1);
    EXPECT_EQ(writer.write(entryOf("failed", false), "/a", "failed"), -1);
    EXPECT_EQ(log.lines(), expected[part - 1]) << part;
    EXPECT_EQ(readFile(path_), bytes);
    EXPECT_EQ(writer.write(entryOf("after", false), "/a", "after"), 5);
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(payloadsInIndex(), (Payloads{"before", "after"}));
    EXPECT_EQ(payloadsInFile(), (Payloads{"before", "after"}));
  }
}

TEST_F(BagWriterTest, HalfWrittenPayloadIsCutOff) {
  openWithTopics();
  EXPECT_EQ(write("before"), 6);
  const std::string bytes = readFile(path_);
  calls_.limitFileBytes(static_cast<std::int64_t>(bytes.size()) + 500);
  EXPECT_EQ(write(std::string(1000, 'x')), -1);
  EXPECT_EQ(readFile(path_), bytes);
  EXPECT_EQ(write("fits"), 4);
  calls_.limitFileBytes(-1);
  EXPECT_TRUE(writer_.close());
  EXPECT_EQ(payloadsInIndex(), (Payloads{"before", "fits"}));
}

TEST_F(BagWriterTest, ChunkThatCannotBeCutOffStopsTheWriterUntilClose) {
  openWithTopics();
  EXPECT_EQ(write("before"), 6);
  calls_.fail(Call::kPwrite, 3, 1, EIO);
  calls_.fail(Call::kFtruncate, 1, 1, EIO);
  EXPECT_EQ(write("failed"), -1);
  EXPECT_TRUE(
      log_.contains(errorLine("BagWriter::cutOff", "cut file(" + path_ + ") back to " +
                                                       std::to_string(4096 + 28 + 128 + 58) +
                                                       " error: " + kIoError + "!")));
  const LogCapture log;
  EXPECT_EQ(write("later"), -1);
  EXPECT_EQ(log.lines(),
            (Lines{errorLine("BagWriter::writeChunk", "write chunk head error: " + kIoError + "!"),
                   errorLine("BagWriter::write", "write topic data chunk error!")}));
  EXPECT_TRUE(writer_.close());  // the cut succeeds now, and the bag is whole
  EXPECT_EQ(payloadsInIndex(), Payloads{"before"});
}

TEST_F(BagWriterTest, CloseIsFalseWhereTheFailedChunkStays) {
  openWithTopics();
  EXPECT_EQ(write("before"), 6);
  calls_.fail(Call::kPwrite, 3, 1, EIO);
  calls_.fail(Call::kFtruncate);
  EXPECT_EQ(write("failed"), -1);
  EXPECT_FALSE(writer_.close());
  EXPECT_TRUE(log_.contains(errorLine("BagWriter::writeIndexChunk", "write index chunk error!")));
  BagReader reader;
  EXPECT_EQ(reader.open(path_), 1);  // what was written before can still be read
  std::string data;
  EXPECT_EQ(reader.read(messageIndex({.stored = "before"}, reader.header().dataStart()), &data), 6);
}

TEST_F(BagWriterTest, FailedIndexChunkMakesCloseFalseAndLeavesAnUnindexedBag) {
  for (const int part : {1, 2, 3}) {
    BagWriter writer(CompressionType::kNone, 0, "");
    ASSERT_EQ(writer.open(path_), 0);
    ASSERT_TRUE(writer.setTopics({"/a"}));
    ASSERT_EQ(writer.write(entryOf("kept", false), "/a", "kept"), 4);
    calls_.fail(Call::kPwrite, part, 1);
    EXPECT_FALSE(writer.close());
    EXPECT_TRUE(log_.contains(errorLine("BagWriter::writeIndexChunk", "write index chunk error!")));
    const RawBag bag = takeApart(readFile(path_));
    EXPECT_EQ(numberAt<std::uint64_t>(bag.header, 24), 0U);
    EXPECT_EQ(numberAt<std::uint64_t>(bag.header, 16), 4096U + 28 + 64);
    EXPECT_EQ(bag.chunks.size(), 2U);
    EXPECT_EQ(bag.rest, "");
  }
}

TEST_F(BagWriterTest, IndexChunkThatCannotLeaveTheBufferIsTakenBack) {
  BagWriter writer(CompressionType::kNone, 1 << 16, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a"}));
  const std::string before = readFile(path_);
  calls_.limitFileBytes(static_cast<std::int64_t>(before.size()) + 10);
  EXPECT_FALSE(writer.close());
  EXPECT_TRUE(log_.contains(errorLine("BagWriter::writeIndexChunk", "write index chunk error!")));
  const RawBag bag = takeApart(readFile(path_));  // the header tells where messages would begin
  EXPECT_EQ(numberAt<std::uint64_t>(bag.header, 16), before.size());
  EXPECT_EQ(numberAt<std::uint64_t>(bag.header, 24), 0U);
  EXPECT_EQ(bag.chunks.size(), 1U);
  EXPECT_EQ(bag.rest, "");
}

TEST_F(BagWriterTest, FailedPaddingIsAWarningAndMakesCloseFalse) {
  openWithTopics();
  EXPECT_EQ(write("kept"), 4);
  calls_.fail(Call::kPwrite, 4, 1);
  EXPECT_FALSE(writer_.close());
  EXPECT_TRUE(
      log_.contains(warningLine("BagWriter::writeIndexChunk", " write end padding error!")));
  EXPECT_EQ(payloadsInIndex(), Payloads{"kept"});
  EXPECT_EQ(takeApart(readFile(path_)).rest, "");
}

TEST_F(BagWriterTest, FailedLastHeaderIsAWarningAndMakesCloseFalse) {
  openWithTopics();
  EXPECT_EQ(write("kept"), 4);
  calls_.fail(Call::kPwrite, 5, 1, EIO);
  EXPECT_FALSE(writer_.close());
  const Lines lines = log_.lines();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[1], errorLine("BagWriter::updateHeader", "write file header error!"));
  EXPECT_EQ(lines[2], warningLine("BagWriter::close", "update header error!"));
  EXPECT_EQ(payloadsInFile(), Payloads{"kept"});
}

TEST_F(BagWriterTest, FailedCloseOfTheFileMakesCloseFalse) {
  openWithTopics();
  calls_.fail(Call::kClose, 1, 1, EIO);
  EXPECT_FALSE(writer_.close());
  EXPECT_TRUE(log_.contains(
      errorLine("BagWriter::close", "close file(" + path_ + ") error: " + kIoError + "!")));
  EXPECT_TRUE(writer_.close());
}

/// Spoils its header, as no caller can.
class SpoiltWriter final : public BagWriter {
 public:
  using BagWriter::BagWriter;
  void spoil() { header_.setPrivateSize(5000); }
};

TEST_F(BagWriterTest, HeaderWithTooMuchPrivateDataIsNotWritten) {
  SpoiltWriter writer(CompressionType::kNone, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a"}));
  const std::string header = readFile(path_).substr(0, 4096);
  writer.spoil();
  EXPECT_FALSE(writer.close());
  EXPECT_TRUE(
      log_.contains(errorLine("BagWriter::updateHeader", "invalid private data size: 5000!")));
  EXPECT_TRUE(log_.contains(warningLine("BagWriter::close", "update header error!")));
  EXPECT_EQ(readFile(path_).substr(0, 4096), header);
}

TEST_F(BagWriterTest, ReadsKeepTheBaseBehaviour) {
  openWithTopics();
  EXPECT_EQ(write("kept"), 4);
  BagFile::Chunk chunk;
  std::string data;
  EXPECT_EQ(writer_.read(&chunk, 4096, nullptr), -1);
  EXPECT_EQ(writer_.readNextChunk(&chunk, 4096, nullptr), -1);
  EXPECT_EQ(writer_.read(messageIndex(*writer_.topicIndex("/a"), 0), &data), -1);
}

}  // namespace
}  // namespace morva::test
