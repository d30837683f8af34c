#include "storage/bag_writer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "platform/byte_order.h"
#include "platform/crc32.h"
#include "platform/date_time.h"
#include "platform/file_path.h"
#include "platform/replace_file.h"
#include "storage/index_codec.h"

namespace morva {
namespace {

std::string systemError() { return std::generic_category().message(errno); }

/// Of a clock that nobody sets.
std::int64_t steadyUs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

std::uint64_t nowUs() { return static_cast<std::uint64_t>(osmik::Time::now().toMicroSec()); }

/// Header of a definition or an index chunk.
std::string timedHeader(std::size_t rawSize) {
  std::string header;
  appendLe<std::uint64_t>(&header, nowUs());
  appendLe<std::uint32_t>(&header, static_cast<std::uint32_t>(rawSize));
  return header;
}

void appendTopicRecord(const std::string& name, std::uint32_t id, std::string* out) {
  std::string text(name.c_str());  // up to a NUL, as the file stores it
  text.resize(std::min(text.size(), layout::kTopicNameBytes - 1));
  text.resize(layout::kTopicNameBytes, '\0');
  appendLe<std::uint32_t>(out, id);
  out->append(text);
}

}  // namespace

BagWriter::BagWriter(CompressionType type, std::uint32_t writeBufferSize, std::string privateData)
    : writeBufferSize_(writeBufferSize), privateData_(std::move(privateData)) {
  header_.setCompression(static_cast<std::uint8_t>(type));
}

BagWriter::~BagWriter() { BagWriter::close(); }

int BagWriter::open(const std::string& path) {
  if (file_) return kOpenOk;
  file_ = std::make_shared<osmik::File>();
  file_->setWMBuffer(writeBufferSize_);
  if (!file_->open(path, osmik::OpenMode::kWrite)) {
    log_.error("open file(%s) error!", path);
    return dropFile(kOpenFailed);
  }
  if (privateData_.size() > layout::kMaxPrivateBytes) {
    log_.error("private data size(%s) error!", std::to_string(privateData_.size()));
    return dropFile(kOpenPrivateData);
  }
  initHeader();
  if (!updateHeader(header_)) {
    log_.error("update header error!");
    return dropFile(kOpenPrivateData);
  }
  compressor_ = makeCompressor(header_.compression());
  path_ = path;
  return kOpenOk;
}

void BagWriter::initHeader() {
  layout::kTag.copy(&header_.bytes[layout::kTagOffset], layout::kTag.size());
  header_.bytes[layout::kReservedOffset] = 0;
  header_.setVersion(layout::kVersion);
  header_.setCreationTime(nowUs());
  header_.setDataStart(0);
  header_.setIndexChunkOffset(0);
  header_.setPrivateSize(static_cast<std::uint32_t>(privateData_.size()));
  header_.setPrivateData(privateData_);

  topicIds_.clear();
  topicIndexes_.clear();
  writeOffset_ = layout::kHeaderBytes;
  hasBrokenTail_ = false;
  isComplete_ = true;
  unsynced_.clear();
  isSynced_ = unsynced_.isBound();
  isNameSynced_ = false;
  hasSyncFailed_ = false;
}

int BagWriter::dropFile(OpenCode code) {
  file_->close();  // the open has failed already
  file_.reset();
  return code;
}

bool BagWriter::updateHeader(const Header& header) {
  if (header.privateSize() > layout::kMaxPrivateBytes) {
    log_.error("invalid private data size: %d!", header.privateSize());
    return false;
  }
  std::string_view bytes = image_.bytes();
  const bool isThere = header_.dataStart() != 0;
  if (isSynced_ && isThere && image_.makeFirstSector(header)) {
    bytes = image_.firstSector();
  } else {
    image_.make(header);
  }
  const bool written = file_->seek(0) == 0 &&
                       file_->write(bytes) == static_cast<std::int64_t>(bytes.size()) &&
                       file_->flush();
  if (!written) log_.error("write file header error!");
  return written;
}

bool BagWriter::setTopics(const std::vector<std::string>& topics) {
  if (header_.dataStart() != 0) {  // a second definition chunk would overwrite messages
    log_.error("write definition chunk error!");
    return false;
  }
  numberTopics(topics);
  const std::string data = topicRecords();
  const std::int64_t size = writeChunk({.type = layout::kDefinitionChunk,
                                        .compress = true,
                                        .header = timedHeader(data.size()),
                                        .data = data});
  if (size < 1 || !(unsynced_.isBound() ? flush() : file_->flush())) {
    log_.error("write definition chunk error!");
    // Messages without a definition chunk before them could never be read.
    topicIds_.clear();
    topicIndexes_.clear();
    if (size >= 1) hasBrokenTail_ = !cutOff(writeOffset_);
    return false;
  }
  writeOffset_ += static_cast<std::uint64_t>(size);
  header_.setDataStart(writeOffset_);
  return true;
}

void BagWriter::numberTopics(const std::vector<std::string>& topics) {
  topicIds_.clear();
  topicIndexes_.clear();
  for (const std::string& topic : topics) {
    const auto next = static_cast<std::uint32_t>(topicIds_.size());
    topicIds_.emplace(topic, next);
    topicIndexes_.emplace(next, std::make_shared<TopicIndex>());
  }
}

std::string BagWriter::topicRecords() const {
  std::string records;
  for (const auto& [name, id] : topicIds_) appendTopicRecord(name, id, &records);
  return records;
}

std::int64_t BagWriter::write(const TopicHeader& header, const std::string& topic,
                              const std::string& data) {
  const auto found = topicIds_.find(topic);
  const std::size_t topicCount = topicIds_.size();
  if (found == topicIds_.end() || found->second >= topicCount) {
    log_.error("invalid topic [%s](%d)!", topic,
               found == topicIds_.end() ? topicCount : found->second);
    return -1;
  }
  TopicHeader entry = header;
  entry.topicId = static_cast<std::int32_t>(found->second);
  const std::string chunkHeader = encodeTopicHeader(entry);
  const std::int64_t size = writeChunk({.type = layout::kTopicDataChunk,
                                        .compress = header.rawSize != header.storedSize,
                                        .header = chunkHeader,
                                        .data = data});
  if (size < 1) {
    log_.error("write topic data chunk error!");
    return -1;
  }
  if (unsynced_.isBound() && !keepBound(static_cast<std::uint64_t>(size))) {
    hasBrokenTail_ = !cutOff(writeOffset_);
    log_.error("write topic data chunk error!");
    return -1;
  }
  entry.storedSize = static_cast<std::uint32_t>(size) -
                     static_cast<std::uint32_t>(layout::chunkBytes(chunkHeader.size(), 0));
  topicIndexes_[found->second]->append(entry, writeOffset_);
  writeOffset_ += static_cast<std::uint64_t>(size);
  return static_cast<std::int64_t>(data.size());
}

/// Flushes where the chunk just written, of `chunkBytes` bytes, makes the loss bound reached.
bool BagWriter::keepBound(std::uint64_t chunkBytes) {
  const std::int64_t now = steadyUs();
  if (!hasSyncFailed_ && !unsynced_.isReachedWith(chunkBytes, now)) {
    unsynced_.add(chunkBytes, now);
    return true;
  }
  return flush();
}

bool BagWriter::flush() {
  isSynced_ = true;  // from now on: what a first flush promises must survive the close
  if (!sync()) return false;
  unsynced_.clear();
  return true;
}

bool BagWriter::sync() {
  const std::lock_guard lock(mutex_);
  const Log log("BagWriter", "flush");
  if (!file_) {
    log.error("file(%s) not open!", path_);
    return false;
  }
  // What the system does not take stays in the buffer, for the next time. What the device has
  // failed is lost without a trace: a later success would say nothing of it.
  if (hasSyncFailed_) errno = EIO;
  bool done = !hasSyncFailed_ && file_->flush();
  if (done) {
    done =
        file_->sync() && (isNameSynced_ || osmik::syncDirectory(osmik::FilePath(path_).dirName()));
    isNameSynced_ = done;
    hasSyncFailed_ = !done;
  }
  if (!done) log.error("flush file(%s) error: %s!", path_, systemError());
  return done;
}

std::int64_t BagWriter::writeChunk(const ChunkParts& chunk) {
  const std::lock_guard lock(mutex_);
  if (!file_) {
    log_.error("file(%s) not open!", path_);
    return -1;
  }
  if (hasBrokenTail_ || !layout::fitsChunk(chunk.header.size(), chunk.data.size())) {
    errno = hasBrokenTail_ ? EIO : EFBIG;
    log_.error("write chunk head error: %s!", systemError());
    return -1;
  }
  const std::string_view payload = storedForm(chunk);
  if (!appendChunk(chunk, payload)) {
    hasBrokenTail_ = !cutOff(writeOffset_);
    return -1;
  }
  return static_cast<std::int64_t>(layout::chunkBytes(chunk.header.size(), payload.size()));
}

std::string_view BagWriter::storedForm(const ChunkParts& chunk) {
  if (!chunk.compress || !compressor_) return chunk.data;
  const std::size_t bound = compressor_->bound(chunk.data.size());
  if (compressed_.size() < bound) compressed_.resize(bound);
  const std::int64_t length = compressor_->compress(chunk.data.data(), chunk.data.size(),
                                                    compressed_.data(), compressed_.size());
  if (length < 1) return chunk.data;
  return {compressed_.data(), static_cast<std::size_t>(length)};
}

bool BagWriter::appendChunk(const ChunkParts& chunk, std::string_view payload) {
  static const Log log("BagWriter", "writeChunk");
  const std::size_t size = layout::chunkBytes(chunk.header.size(), payload.size());
  head_.clear();  // a member: to allocate takes longer than to sum up a small message
  appendLe<std::uint32_t>(&head_, static_cast<std::uint32_t>(size));
  appendLe<std::uint16_t>(&head_, chunk.type);
  appendLe<std::uint16_t>(&head_, static_cast<std::uint16_t>(chunk.header.size()));
  head_.append(chunk.header);
  appendLe<std::uint32_t>(&head_, static_cast<std::uint32_t>(payload.size()));
  std::string crc;
  appendLe<std::uint32_t>(&crc, Crc32(payload.data(), payload.size()));

  const auto put = [this](std::string_view bytes) {
    return file_->write(bytes) == static_cast<std::int64_t>(bytes.size());
  };
  if (!put(head_) || !put(payload)) {
    log.error("write chunk head error: %s!", systemError());
    return false;
  }
  if (!put(crc)) {
    log.error("write chunk crc32 error: %s!", systemError());
    return false;
  }
  return true;
}

bool BagWriter::cutOff(std::uint64_t offset) {
  if (file_->truncate(static_cast<std::int64_t>(offset))) return true;
  log_.error("cut file(%s) back to %lld error: %s!", path_, offset, systemError());
  return false;
}

std::int64_t BagWriter::writeIndexChunk() {
  std::string data;
  if (!encodeTopicIndexes(topicIndexes_, &data)) {
    log_.error("serialize index error!");
    isComplete_ = false;
  }
  const std::int64_t size = writeChunk({.type = layout::kIndexChunk,
                                        .compress = true,
                                        .header = timedHeader(data.size()),
                                        .data = data});
  if (size < 1 || !file_->flush()) {
    log_.error("write index chunk error!");
    if (size >= 1) hasBrokenTail_ = !cutOff(writeOffset_);
    isComplete_ = false;
    return -1;
  }
  const std::uint64_t end = writeOffset_ + static_cast<std::uint64_t>(size);
  const std::uint64_t aligned =
      (end + layout::kAlignment - 1) / layout::kAlignment * layout::kAlignment;
  log_.info("chunk pos:%lld size:%lld end:%lld, aligned:%lld.", writeOffset_, size, end, aligned);
  if (!writePadding(aligned - end)) {
    log_.warning(" write end padding error!");
    if (!cutOff(end)) hasBrokenTail_ = true;
    isComplete_ = false;
  }
  header_.setIndexChunkOffset(writeOffset_);
  return size + static_cast<std::int64_t>(aligned - end);
}

bool BagWriter::writePadding(std::uint64_t bytes) {
  const std::string padding(bytes, ' ');
  return file_->write(padding) == static_cast<std::int64_t>(bytes) && file_->flush();
}

bool BagWriter::close() {
  if (!file_) return true;
  if (hasBrokenTail_) hasBrokenTail_ = !cutOff(writeOffset_);
  if (writeIndexChunk() < 0) isComplete_ = false;
  if (isSynced_ && !sync()) isComplete_ = false;
  if (!updateHeader(header_)) {
    log_.warning("update header error!");
    isComplete_ = false;
  }
  if (isSynced_ && !sync()) isComplete_ = false;
  if (!file_->close()) {
    log_.error("close file(%s) error: %s!", path_, systemError());
    isComplete_ = false;
  }
  file_.reset();
  return isComplete_;
}

}  // namespace morva
