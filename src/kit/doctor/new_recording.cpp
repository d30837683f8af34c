#include "kit/doctor/new_recording.h"

#include <cerrno>
#include <set>
#include <system_error>
#include <utility>

#include "platform/crc32.h"
#include "platform/file.h"
#include "platform/file_path.h"
#include "platform/ignore_result.h"
#include "platform/replace_file.h"
#include "platform/str_util.h"
#include "storage/bag_reader.h"
#include "storage/index_codec.h"

namespace morva::doctor {
namespace {

using osmik::StrUtil;

constexpr std::uint32_t kWriteBufferBytes = 1024 * 1024;

std::string systemError() { return std::generic_category().message(errno); }

std::string temporaryNameFor(const std::string& path) {
  const osmik::FilePath file(path);
  std::string tag;
  for (const char byte : StrUtil::randomData(4)) {
    tag += StrUtil::format("%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  }
  return file.dirName() + "/." + file.baseName() + "." + tag + ".tmp";
}

/// The offsets of all messages that a recording's index knows.
std::set<std::uint64_t> indexedOffsets(const BagReader& reader) {
  std::set<std::uint64_t> offsets;
  for (const auto& [id, index] : reader.topicIndexes()) {
    offsets.insert(index->chunkOffsets.begin(), index->chunkOffsets.end());
  }
  return offsets;
}

}  // namespace

NewRecording::~NewRecording() {
  writer_.reset();
  if (!temporary_.empty()) ignoreResult(osmik::File::remove(temporary_));  // nothing else is left
}

bool NewRecording::fail(const std::string& problem) {
  problem_ = problem;
  return false;
}

/// Exclusively: what another program put there is never followed nor written to.
bool NewRecording::createTemporary() {
  const std::string path = temporaryNameFor(path_);
  osmik::File file;
  if (!file.open(path, osmik::OpenMode::kWriteNew)) return false;
  temporary_ = path;
  return file.close();
}

bool NewRecording::begin(std::uint8_t compression, const std::string& privateData,
                         const TopicNames& names) {
  if (!createTemporary()) return fail("it cannot be created: " + systemError());
  std::vector<std::string> topics;
  for (const auto& [id, name] : names) {
    names_[id] = name.substr(0, layout::kTopicNameBytes - 1);
    topics.push_back(names_[id]);
  }
  writer_ = std::make_unique<BagWriter>(static_cast<CompressionType>(compression),
                                        kWriteBufferBytes, privateData);
  if (writer_->open(temporary_) != BagFile::kOpenOk || !writer_->setTopics(topics)) {
    return fail("its beginning cannot be written");
  }
  return true;
}

const std::string& NewRecording::nameOf(const Added& added) const {
  return names_.at(static_cast<std::uint32_t>(added.header.topicId));
}

bool NewRecording::add(const Message& message, const std::string& payload) {
  Added added{message.header, Crc32(payload.data(), payload.size())};
  const bool wasCompressed = message.header.storedSize != payload.size();
  added.header.rawSize = static_cast<std::uint32_t>(payload.size());
  added.header.storedSize = wasCompressed ? 0 : added.header.rawSize;
  if (writer_->write(added.header, nameOf(added), payload) < 0) {
    return fail("a message cannot be written");
  }
  added_.push_back(added);
  return true;
}

bool NewRecording::finish() {
  if (!writer_->close()) return fail("not all of it could be written");
  return true;
}

bool NewRecording::holdsAdded(const BagFile::Chunk& chunk, const Added& added,
                              const std::string& topic) const {
  BagFile::TopicHeader header;
  return chunk.type == layout::kTopicDataChunk && decodeTopicHeader(chunk.header, &header) &&
         header.time == added.header.time && header.rawSize == added.header.rawSize &&
         header.count == added.header.count && header.headerTimes == added.header.headerTimes &&
         topic == nameOf(added) && Crc32(chunk.data.data(), chunk.data.size()) == added.crc;
}

bool NewRecording::verify(const Progress& progress) {
  BagReader reader;
  if (reader.open(temporary_) != BagFile::kOpenOk) return fail("it cannot be read back");
  std::set<std::uint64_t> indexed = indexedOffsets(reader);
  if (indexed.size() != added_.size()) return fail("its index is not what was written");

  auto offset = static_cast<std::int64_t>(reader.header().dataStart());
  BagFile::Chunk chunk;
  for (std::size_t i = 0; i < added_.size(); ++i) {
    if (!progress(static_cast<double>(i) / static_cast<double>(added_.size()))) {
      return fail("interrupted");
    }
    std::int64_t next = 0;
    const bool isRead = reader.read(&chunk, offset, &next) >= 0;
    BagFile::TopicHeader header;
    const bool isMessage = isRead && decodeTopicHeader(chunk.header, &header);
    const auto topic = reader.topicNames().find(static_cast<std::uint32_t>(header.topicId));
    if (!isMessage || topic == reader.topicNames().end() ||
        !holdsAdded(chunk, added_[i], topic->second) ||
        indexed.erase(static_cast<std::uint64_t>(offset)) == 0) {
      return fail("what was written does not read back as it was");
    }
    offset = next;
  }
  return true;
}

bool NewRecording::publish(bool replace) {
  if (!osmik::publishFile(temporary_, path_, replace)) {
    return fail("it cannot get its name: " + systemError());
  }
  temporary_.clear();
  return true;
}

}  // namespace morva::doctor
