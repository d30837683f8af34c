#include "storage/bag_reader.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/byte_order.h"
#include "platform/crc32.h"
#include "platform/data_crypto.h"
#include "platform/ignore_result.h"
#include "platform/overwrite_string.h"
#include "storage/index_codec.h"

namespace morva {
namespace {

constexpr std::string_view kGenericLidar = "/lidar";

/// Names that may stand for one topic. No recorder gives it more than one; thousands would have all
/// that is done for each name done as often with the same messages.
constexpr std::size_t kMaxNames = 16;

/// Text up to a NUL, or all of it.
std::string_view untilNul(std::string_view bytes) { return bytes.substr(0, bytes.find('\0')); }

bool isLidarModel(std::string_view topic) {
  return topic == "/hesai/pandar" || topic == "/livox/lidar";
}

}  // namespace

BagReader::~BagReader() { BagReader::close(); }

int BagReader::open(const std::string& path) {
  if (file_) return kOpenOk;
  file_ = std::make_shared<osmik::File>();
  if (!file_->open(path, osmik::OpenMode::kRead)) {
    log_.error("open file(%s) error!", path);
    file_.reset();
    return kOpenFailed;
  }
  const int code = load(path);
  if (code == kOpenOk || code == kOpenNoIndex) {
    hasIndex_ = true;
    path_ = path;
    return code;
  }
  file_.reset();
  log_.error("open file(%s) error: %d!", path_, code);
  return code;
}

int BagReader::load(const std::string& path) {
  topicIds_.clear();
  topicNames_.clear();
  soundIndexAt_ = -1;
  {
    const std::lock_guard lock(indexMutex_);
    dropIndex();
  }
  fileSize_ = file_->size();
  sizeAtOpen_ = fileSize_;
  if (const int code = readHeader(path); code != kOpenOk) return code;
  compressor_ = makeCompressor(header_.compression());
  if (header_.version() != layout::kVersion) decryptPrivateData();
  if (const int code = readDefinition(); code != kOpenOk) return code;
  return loadIndex(path);
}

int BagReader::readHeader(const std::string& path) {
  const Log log("BagReader", "open");
  const std::int64_t count = file_->read(header_.bytes.data(), header_.bytes.size());
  if (count != static_cast<std::int64_t>(header_.bytes.size())) {
    log.error("file(%s) header error, ret: %d!", path, count);
    return kOpenMalformed;
  }
  const std::string_view image(header_.bytes.data(), header_.bytes.size());
  if (!image.starts_with(layout::kTag)) {
    log.error("file(%s) tag[%s] error!", path, untilNul(image));
    return kOpenMalformed;
  }
  if (Crc32(image.data(), layout::kHeaderCrcOffset) != header_.checksum()) {
    log.error("header checksum error!");
    return kOpenChecksum;
  }
  if (header_.indexChunkOffset() == 0) log.warning("file(%s) has no index chunk!", path);
  return kOpenOk;
}

void BagReader::decryptPrivateData() {
  header_.setPrivateData(DataCrypto::decrypt(header_.privateData()));
}

int BagReader::readDefinition() {
  const Log log("BagReader", "open");
  Chunk chunk;
  std::int64_t end = 0;
  if (read(&chunk, layout::kHeaderBytes, &end) < 0) {
    log.error("read definition chunk error!");
    return kOpenMalformed;
  }
  if (chunk.type != layout::kDefinitionChunk) {
    log.error("definition chunk error!");
    return kOpenMalformed;
  }
  if (chunk.data.size() % layout::kTopicRecordBytes != 0) {
    log.error("definition chunk data(size: %d) error!", chunk.data.size());
    return kOpenMalformed;
  }
  addTopics(chunk.data);
  header_.setDataStart(static_cast<std::uint64_t>(end));
  return kOpenOk;
}

void BagReader::addTopics(const std::string& records) {
  std::map<std::uint32_t, std::size_t> namesOf;
  for (std::size_t at = 0; at < records.size(); at += layout::kTopicRecordBytes) {
    const std::string_view record = std::string_view(records).substr(at, layout::kTopicRecordBytes);
    const auto id = loadLe<std::uint32_t>(record.data());
    const std::string name(untilNul(record.substr(layout::kTopicNameOffset)));
    if (!topicIds_.contains(name) && ++namesOf[id] > kMaxNames) {
      if (namesOf[id] == kMaxNames + 1) log_.error("topic(%u) has too many names!", id);
      continue;
    }
    topicIds_.emplace(name, id);
    topicNames_.emplace(id, name);
    if (isLidarModel(name)) topicIds_.emplace(kGenericLidar, id);
  }
}

int BagReader::loadIndex(const std::string& path) {
  const Log log("BagReader", "open");
  const std::string sidePath = path + std::string(layout::kSideFileSuffix);
  const bool hasChunk = header_.indexChunkOffset() != 0;
  if (hasChunk && !osmik::File::exists(sidePath)) return loadIndexChunk();
  if (createTopicIndexFromFile(header_, sidePath)) return kOpenOk;
  log.warning(hasChunk ? "create index from file error!" : "load index file error!");
  return kOpenNoIndex;
}

int BagReader::loadIndexChunk() {
  const Log log("BagReader", "open");
  const auto offset = static_cast<std::int64_t>(header_.indexChunkOffset());
  if (keep_ != Keep::kEntries && offset > 0 && scanIndexChunk(offset)) return kOpenOk;
  Chunk chunk;
  if (read(&chunk, offset, nullptr) < 0) {
    log.warning("read index chunk error!");
    return kOpenNoIndex;
  }
  dropSpares();  // as large as the index, and needed for messages alone from here on
  if (chunk.type != layout::kIndexChunk) {
    log.warning("extend chunk type(0x%04X) error!", chunk.type);
    return kOpenNoIndex;
  }
  if (!createTopicIndex(std::move(chunk.data))) {
    log.warning("create index error!");
    return kOpenNoIndex;
  }
  return kOpenOk;
}

/// Looks at the index chunk where it lies in the file. @return Whether it is an uncompressed index
/// of the usual form, and sound; all others are left to the reads that keep it and log.
bool BagReader::scanIndexChunk(std::int64_t offset) {
  const std::lock_guard lock(mutex_);
  constexpr std::size_t kFramingBytes =
      layout::kChunkPrefixBytes + layout::kMinChunkHeaderBytes + 4;
  std::string_view bytes;
  if (file_->seek(offset) != offset || file_->peek(kFramingBytes, &bytes) != kFramingBytes)
    return false;
  const auto rawSize =
      loadLe<std::uint32_t>(&bytes[layout::kChunkPrefixBytes + layout::kRawSizeOffset]);
  const auto size = loadLe<std::uint32_t>(&bytes[kFramingBytes - 4]);
  if (loadLe<std::uint16_t>(&bytes[layout::kChunkTypeOffset]) != layout::kIndexChunk ||
      loadLe<std::uint16_t>(&bytes[layout::kHeaderSizeOffset]) != layout::kMinChunkHeaderBytes ||
      (compressor_ && rawSize != size) || size == 0) {
    return false;
  }
  std::int64_t at = offset + std::int64_t{kFramingBytes};
  IndexScan scan(size);
  std::uint32_t sum = 0;
  for (std::uint64_t left = size; left > 0;) {
    const std::size_t wanted = std::min<std::uint64_t>(left, osmik::File::kMaxPeekBytes);
    if (file_->seek(at) != at || file_->peek(wanted, &bytes) != static_cast<std::int64_t>(wanted))
      return false;
    const std::int64_t count = scan.feed(bytes);
    if (count < 1) return false;
    sum = Crc32(sum, bytes.data(), static_cast<std::size_t>(count));
    at += count;
    left -= static_cast<std::uint64_t>(count);
  }
  if (file_->seek(at) != at || file_->peek(layout::kCrcBytes, &bytes) != layout::kCrcBytes)
    return false;
  if (!scan.isComplete() || loadLe<std::uint32_t>(bytes.data()) != sum) return false;
  soundIndexAt_ = offset;
  if (keep_ == Keep::kTotals) {
    const std::lock_guard indexLock(indexMutex_);
    addEncoded(scan.topics());
  }
  return true;
}

bool BagReader::createTopicIndex(std::string data) {
  const std::lock_guard lock(indexMutex_);
  // Nearly every index is found sound by a scan and stays encoded: most who open a bag want one
  // topic of it, or none. All others are the general parser's.
  indexData_ = std::move(data);
  std::vector<EncodedTopic> topics;
  bool isSound = !indexData_.empty() && scanTopicIndexes(indexData_, &topics);
  if (isSound) {
    addEncoded(topics);
  } else {
    isSound = parseTopicIndexes(indexData_, &topicIndexes_);
    refuseRepeating();
    indexData_ = {};
  }
  if (keep_ == Keep::kTotals) keepTotals();
  if (keep_ == Keep::kNothing) dropIndex();
  if (!isSound) log_.error("PBChunkIndexData unpack error!");
  return isSound;
}

void BagReader::addEncoded(const std::vector<EncodedTopic>& topics) {
  // Of topics with one id the first counts.
  for (const EncodedTopic& topic : topics) encodedTopics_.emplace(topic.topicId, topic);
}

void BagReader::keepTotals() {
  for (const auto& [id, index] : topicIndexes_) {
    encodedTopics_.emplace(id, EncodedTopic{.topicId = id, .totals = index->totals()});
  }
  topicIndexes_.clear();
  indexData_ = {};
}

/// Adds up the bytes of the chunks that entries name within a file of `fileBytes`.
class BagReader::NamedBytes {
 public:
  explicit NamedBytes(std::int64_t fileBytes) : fileBytes_(fileBytes) {}

  void add(const TopicHeader& entry, std::uint64_t chunkOffset) {
    constexpr std::int64_t kFraming = layout::kTopicDataOffset + 4;
    const auto offset = static_cast<std::int64_t>(
        std::min<std::uint64_t>(chunkOffset, static_cast<std::uint64_t>(fileBytes_)));
    const std::int64_t bytes = kFraming + entry.storedSize;
    if (bytes <= fileBytes_ - offset) sum_ += bytes;  // others cannot be read
  }
  [[nodiscard]] std::int64_t sum() const { return sum_; }

 private:
  std::int64_t fileBytes_;
  std::int64_t sum_ = 0;
};

bool BagReader::isRefused(std::uint32_t topicId, const NamedBytes& named) const {
  // Messages lie beside each other. Entries that share the bytes of few could make a reader read
  // without an end.
  if (named.sum() <= sizeAtOpen_) return false;
  log_.error("index of topic(%u) names %lld bytes, the file holds %lld!", topicId, named.sum(),
             sizeAtOpen_);
  return true;
}

void BagReader::refuseRepeating() {
  for (auto& [id, index] : topicIndexes_) {
    NamedBytes named(sizeAtOpen_);
    for (std::size_t i = 0; i < index->entries.size(); ++i) {
      named.add(index->entries[i], index->chunkOffsets[i]);
    }
    if (!isRefused(id, named)) continue;
    encodedTopics_.emplace(id, EncodedTopic{.topicId = id, .totals = index->totals()});
    index = std::make_shared<TopicIndex>();
  }
}

const EncodedTopic* BagReader::encodedTopic(std::uint32_t topicId) const {
  const auto encoded = encodedTopics_.find(topicId);
  if (encoded == encodedTopics_.end() || keep_ != Keep::kEntries) return nullptr;
  if (!acceptedTopics_.contains(topicId)) {
    NamedBytes named(sizeAtOpen_);
    morva::visitTopic(indexData_, encoded->second,
                      [&named](const TopicHeader& entry, std::uint64_t chunkOffset) {
                        named.add(entry, chunkOffset);
                      });
    if (isRefused(topicId, named)) {
      topicIndexes_[topicId] = std::make_shared<TopicIndex>();
      return nullptr;
    }
    acceptedTopics_.insert(topicId);
  }
  return &encoded->second;
}

/// The index of a topic, decoded where it is not yet.
std::shared_ptr<BagFile::TopicIndex> BagReader::decoded(std::uint32_t topicId) const {
  if (!topicIndexes_.contains(topicId)) {
    if (const EncodedTopic* const encoded = encodedTopic(topicId); encoded != nullptr) {
      topicIndexes_[topicId] = decodeTopic(indexData_, *encoded);
    }
  }
  const auto found = topicIndexes_.find(topicId);
  return found == topicIndexes_.end() ? nullptr : found->second;
}

const BagFile::TopicIndexes& BagReader::topicIndexes() const {
  const std::lock_guard lock(indexMutex_);
  for (const auto& [id, topic] : encodedTopics_) ignoreResult(decoded(id));  // kept
  return topicIndexes_;
}

std::shared_ptr<BagFile::TopicIndex> BagReader::topicIndex(const std::string& topic) const {
  const auto id = topicIds_.find(topic);
  if (id == topicIds_.end()) return nullptr;
  const std::lock_guard lock(indexMutex_);
  return decoded(id->second);
}

bool BagReader::visitTopic(const std::string& topic, const OnEntry& use) const {
  const auto id = topicIds_.find(topic);
  if (id == topicIds_.end()) return false;
  const std::lock_guard lock(indexMutex_);
  if (!topicIndexes_.contains(id->second)) {
    if (const EncodedTopic* const encoded = encodedTopic(id->second); encoded != nullptr) {
      morva::visitTopic(indexData_, *encoded, use);
      return true;
    }
  }
  const auto index = topicIndexes_.find(id->second);
  if (index == topicIndexes_.end()) return false;
  for (std::size_t i = 0; i < index->second->entries.size(); ++i) {
    use(index->second->entries[i], index->second->chunkOffsets[i]);
  }
  return true;
}

std::optional<BagFile::TopicTotals> BagReader::topicTotals(const std::string& topic) const {
  const auto id = topicIds_.find(topic);
  if (id == topicIds_.end()) return std::nullopt;
  const std::lock_guard lock(indexMutex_);
  if (const auto encoded = encodedTopics_.find(id->second); encoded != encodedTopics_.end()) {
    return encoded->second.totals;
  }
  const std::shared_ptr<TopicIndex> index = decoded(id->second);
  if (index == nullptr) return std::nullopt;
  return index->totals();
}

void BagReader::dropIndex() {
  topicIndexes_.clear();
  encodedTopics_.clear();
  acceptedTopics_.clear();
  indexData_ = {};
}

bool BagReader::createTopicIndexFromFile(const Header& header, const std::string& indexPath) {
  if (!osmik::File::exists(indexPath)) return false;
  osmik::File file;
  if (!file.open(indexPath, osmik::OpenMode::kRead)) {
    log_.error("open index file(%s) error!", indexPath);
    return false;
  }
  Header side;
  const auto size = static_cast<std::int64_t>(side.bytes.size());
  if (file.read(side.bytes.data(), side.bytes.size()) != size) {
    log_.error("read index file(%s) error!", indexPath);
    return false;
  }
  if (!std::equal(side.bytes.begin(), side.bytes.begin() + layout::kMatchBytes,
                  header.bytes.begin())) {
    log_.error("index file(%s) not match!", indexPath);
    return false;
  }
  if (side.indexChunkOffset() != layout::kHeaderBytes) {
    log_.error("index chunk offset(0x%08X) error!", side.indexChunkOffset());
    return false;
  }
  std::string data;
  if (!readSideChunk(&file, &data)) return false;
  if (!createTopicIndex(std::move(data))) {
    log_.error("create index error!");
    return false;
  }
  return true;
}

bool BagReader::readSideChunk(osmik::File* file, std::string* data) const {
  const Log log("BagReader", "createTopicIndexFromFile");
  std::array<char, layout::kChunkPrefixBytes + layout::kMinChunkHeaderBytes + 4> prefix{};
  const std::int64_t count = file->read(prefix.data(), prefix.size());
  const auto rawSize =
      loadLe<std::uint32_t>(&prefix[layout::kChunkPrefixBytes + layout::kRawSizeOffset]);
  const auto size = loadLe<std::uint32_t>(&prefix[prefix.size() - 4]);
  if (count != static_cast<std::int64_t>(prefix.size()) || rawSize == 0 || size == 0) {
    log.error("read chunk header error!");
    return false;
  }
  const bool holdsData = file->size() - file->pos() >= size;
  if (holdsData) {
    overwriteString(data, size, [file](char* memory, std::size_t bytes) {
      return static_cast<std::size_t>(std::max<std::int64_t>(file->read(memory, bytes), 0));
    });
  }
  if (data->size() != size) {
    log.error("read chunk data error!");
    return false;
  }
  std::array<char, layout::kCrcBytes> crcBytes{};
  if (file->read(crcBytes.data(), crcBytes.size()) != layout::kCrcBytes) {
    log.error("read chunk crc32 error!");
    return false;
  }
  const auto stored = loadLe<std::uint32_t>(crcBytes.data());
  const std::uint32_t computed = Crc32(data->data(), data->size());
  if (stored != computed) {
    log.error("chunk crc32 check error: 0x%08X -> 0x%08X!", stored, computed);
    return false;
  }
  if (rawSize == size) return true;
  std::string restored;
  if (!compressor_ || !canBeIndexSize(rawSize, fileSize_, topicNames_.size()) ||
      compressor_->decompress(data->data(), data->size(), rawSize, &restored) < 1) {
    restored.clear();
  }
  *data = std::move(restored);
  return true;
}

bool BagReader::close() {
  const std::lock_guard lock(mutex_);
  if (file_) file_->close();  // nothing was written that could be lost
  file_.reset();
  hasIndex_ = false;
  spares_.clear();
  packed_ = {};
  restored_ = {};
  return true;
}

}  // namespace morva
