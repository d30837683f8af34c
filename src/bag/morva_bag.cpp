#include <utility>

#include "morva/bag.h"
#include "platform/byte_order.h"
#include "platform/file.h"
#include "platform/file_path.h"
#include "platform/log.h"
#include "storage/bag_reader.h"
#include "storage/bag_writer.h"

namespace morva {
namespace {

constexpr const char* kClassName = "MorvaBag";

// The header that a caller gives with each message.
constexpr std::size_t kCompressFlagOffset = 0;  // u32
constexpr std::size_t kCountOffset = 4;         // u32
constexpr std::size_t kFirstTimeOffset = 8;     // i64
constexpr std::size_t kSecondTimeOffset = 16;   // i64

BagFile::TopicHeader makeEntry(std::int64_t timeUs, const std::string& header,
                               std::size_t dataBytes) {
  const char* const bytes = header.data();
  BagFile::TopicHeader entry;
  entry.time = timeUs;
  entry.rawSize = static_cast<std::uint32_t>(dataBytes);
  entry.count = loadLe<std::uint32_t>(bytes + kCountOffset);
  entry.headerTimes = {loadLe<std::int64_t>(bytes + kFirstTimeOffset),
                       loadLe<std::int64_t>(bytes + kSecondTimeOffset)};
  const bool compress = loadLe<std::uint32_t>(bytes + kCompressFlagOffset) != 0;
  entry.storedSize = compress ? 0 : entry.rawSize;
  return entry;
}

}  // namespace

MorvaBag::MorvaBag() = default;

MorvaBag::~MorvaBag() = default;

int MorvaBag::open(const std::string& path, BagMode mode, const std::string& privateData) {
  const int code =
      mode == BagMode::kWrite ? openForWriting(path, privateData) : openForReading(path, true);
  if (code == kOpenOk) keepName(path);
  return code;
}

int MorvaBag::openForInfo(const std::string& path) {
  const int code = openForReading(path, false);
  if (code == kOpenOk) keepName(path);
  return code;
}

void MorvaBag::keepName(const std::string& path) {
  const osmik::FilePath filePath(path);
  directory_ = filePath.dirName();
  fileName_ = filePath.baseName();
}

int MorvaBag::openForWriting(const std::string& path, const std::string& privateData) {
  if (osmik::File::exists(path)) {
    Log(kClassName, "open").error("bag file exist: %s!", path);
    return kOpenExists;
  }
  if (topics.empty()) {
    Log(kClassName, "open").error("bag topics is empty, write options may not set!");
    return kOpenNoTopics;
  }

  const auto writer = std::make_shared<BagWriter>(compressionType, writeBufferSize, privateData);
  writer->setLossBound(lossBound);
  storage_ = writer;
  if (const int code = writer->open(path); code != kOpenOk) {
    storage_.reset();
    return code;
  }
  return writer->setTopics(topics) ? kOpenOk : kOpenMalformed;
}

int MorvaBag::openForReading(const std::string& path, bool keepEntries) {
  if (!osmik::File::exists(path)) {
    Log(kClassName, "open").error("bag file not exist: %s!", path);
    return kOpenMissing;
  }

  const auto bagReader = std::make_shared<BagReader>();
  if (!keepEntries) bagReader->keepOfIndex(BagReader::Keep::kTotals);
  storage_ = bagReader;
  if (const int code = bagReader->open(path); code != kOpenOk) {
    storage_.reset();
    return code;
  }
  compressionType = static_cast<CompressionType>(bagReader->header().compression());
  return kOpenOk;
}

bool MorvaBag::close() {
  const std::shared_ptr<BagFile> storage = std::exchange(storage_, nullptr);
  return storage == nullptr || storage->close();
}

bool MorvaBag::writeMessage(const std::string& topic, std::int64_t timeUs,
                            const std::string& header, const std::string& data) {
  const auto writer = std::dynamic_pointer_cast<BagWriter>(storage_);
  if (writer == nullptr) {
    Log(kClassName).error("write topic [%s] error, bag is not open for writing!", topic);
    return false;
  }
  if (header.size() < kMessageHeaderBytes) {
    Log(kClassName)
        .error("write topic [%s] error, message header size(%d < %d)!", topic, header.size(),
               kMessageHeaderBytes);
    return false;
  }
  return writer->write(makeEntry(timeUs, header, data.size()), topic, data) >= 0;
}

bool MorvaBag::flush() {
  const auto writer = std::dynamic_pointer_cast<BagWriter>(storage_);
  if (writer != nullptr) return writer->flush();
  Log(kClassName).error("flush error, bag is not open for writing!");
  return false;
}

std::string MorvaBag::makeMessageHeader(bool compress, std::uint32_t count,
                                        std::int64_t firstTimeUs, std::int64_t secondTimeUs) {
  std::string header(kMessageHeaderBytes, '\0');
  storeLe<std::uint32_t>(header.data() + kCompressFlagOffset, compress ? 1U : 0U);
  storeLe(header.data() + kCountOffset, count);
  storeLe(header.data() + kFirstTimeOffset, firstTimeUs);
  storeLe(header.data() + kSecondTimeOffset, secondTimeUs);
  return header;
}

bool MorvaBag::readMessage(const View::MsgIndex& index, std::string* data) const {
  const auto topicId = static_cast<std::int32_t>(index.topicId);
  if (data == nullptr || topicId < 0) {
    Log(kClassName).error("param error, topicId: %d!", topicId);
    return false;
  }
  if (storage_ != nullptr && storage_->read(index, data) >= 0) return true;
  Log(kClassName)
      .error("read chunk offset(0x%08X:%llu) error!", static_cast<std::uint32_t>(index.chunkOffset),
             index.chunkOffset);
  return false;
}

std::string MorvaBag::getVersion() { return "V1.0.8_20250826.105414"; }

std::shared_ptr<BagReader> MorvaBag::reader() const {
  return std::dynamic_pointer_cast<BagReader>(storage_);
}

}  // namespace morva
