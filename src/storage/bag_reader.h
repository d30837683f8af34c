#ifndef MORVA_STORAGE_BAG_READER_H_
#define MORVA_STORAGE_BAG_READER_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/log.h"
#include "storage/bag_file.h"
#include "storage/index_scan.h"

namespace morva {

/// Reads an existing bag: its header, topic table and index at open(), then single chunks and
/// messages.
///
/// Closed -> open() -> open, with an index or without -> close() -> closed. A failed open() leaves
/// it closed. The topic tables outlive close(), until the next open().
///
/// What the file says about sizes is checked against what the file holds before any memory is
/// taken. Every failure is a return value and one log line. Threads: the reads may be called from
/// any number of threads at the same time, and beside close(); open() must not run at the same time
/// as anything else. Checksums and decompression run unlocked.
class BagReader final : public BagFile {
 public:
  using TopicNames = std::map<std::uint32_t, std::string>;

  BagReader() = default;
  ~BagReader() override;

  /// @return 0, also when a file is open already, which is left alone; kOpenNoIndex: chunks can be
  ///         read, there are no topic indexes; kOpenFailed, kOpenChecksum or kOpenMalformed.
  [[nodiscard]] int open(const std::string& path) override;
  /// @return True.
  bool close() override;

  /// True from any successful open(), kOpenNoIndex included, to close().
  [[nodiscard]] bool hasIndex() const { return hasIndex_; }

  /// Topic names by id, as the definition chunk has them. Unlike topicIds(), where "/lidar" may
  /// stand for a lidar model's topic, no name here is an alias.
  [[nodiscard]] const TopicNames& topicNames() const { return topicNames_; }

  /// The indexes of topics, all of them or one, whose entries are decoded when they are first asked
  /// for. Threads: any.
  [[nodiscard]] const TopicIndexes& topicIndexes() const override;
  [[nodiscard]] std::shared_ptr<TopicIndex> topicIndex(const std::string& topic) const override;
  /// What the index says of a topic as a whole, also where its entries are refused; none where
  /// topicIndex() is empty. Decodes nothing. Threads: any.
  [[nodiscard]] std::optional<TopicTotals> topicTotals(const std::string& topic) const;
  /// Calls `use` with every message of a topic, in writing order: without keeping what has to be
  /// decoded for it.
  /// @param use  Must not call the reader.
  /// @return False where topicIndex() is empty. Threads: any.
  [[nodiscard]] bool visitTopic(const std::string& topic, const OnEntry& use) const;

  /// What the next open() keeps of the index, which may take more memory than all else. It checks
  /// all of it, with the same result and lines.
  enum class Keep {
    kEntries,
    kTotals,   ///< topicTotals() alone: no topic has an index
    kNothing,  ///< for walks through the file
  };
  void keepOfIndex(Keep keep) { keep_ = keep; }

  /// Reads the chunk that begins at `offset` and verifies its checksum.
  /// @param chunk  [in/out] headerOnly is read; type, header and data are replaced. Data is
  /// restored.
  /// @param next   [out, may be null] Offset of the following chunk, on success.
  /// @return Length of the restored data; with headerOnly the stored data size, nothing verified
  /// but
  ///         that the file holds the whole chunk; or -1.
  [[nodiscard]] std::int64_t read(Chunk* chunk, std::int64_t offset, std::int64_t* next) override;

  /// Verifies the chunk that begins at `offset` as read() does, with the same lines and results,
  /// but does not keep its data: for walks through a whole file. headerOnly is not looked at.
  /// Threads: any, one after another; a chunk's checksum and decompression keep the others waiting.
  [[nodiscard]] std::int64_t verify(Chunk* chunk, std::int64_t offset, std::int64_t* next);

  /// Reads one message and verifies its checksum. The chunk's own framing is not read.
  /// @param index  topicId, count, rawSize, storedSize and chunkOffset are used. Count 0 and size 0
  ///               cannot be read.
  /// @param data   [out] The payload; unspecified on failure.
  /// @return Length of the payload, or -1.
  [[nodiscard]] std::int64_t read(const MsgIndex& index, std::string* data) override;

  /// Searches forward from `offset`, after damage, for something that may be a chunk, and reads
  /// there. Steps of 1024 bytes; the last byte 0x01 of the first step that has one is taken for a
  /// chunk start. Where the read at that place fails, the caller decides where to go on.
  /// @return As read(); -1 without a line at the end of the file.
  [[nodiscard]] std::int64_t readNextChunk(Chunk* chunk, std::int64_t offset,
                                           std::int64_t* next) override;

 private:
  /// What a read takes from the file beside the bytes themselves.
  struct Stored {
    std::uint32_t size = 0;  ///< bytes of the data
    std::uint32_t crc = 0;
    std::int64_t end = 0;  ///< offset past the checksum
    std::int64_t fileSize = 0;
  };

  [[nodiscard]] int load(const std::string& path);
  [[nodiscard]] int readHeader(const std::string& path);
  void decryptPrivateData();
  [[nodiscard]] int readDefinition();
  void addTopics(const std::string& records);
  [[nodiscard]] int loadIndex(const std::string& path);
  [[nodiscard]] int loadIndexChunk();
  [[nodiscard]] bool scanIndexChunk(std::int64_t offset);
  [[nodiscard]] bool createTopicIndex(std::string data);
  void addEncoded(const std::vector<EncodedTopic>& topics);
  void keepTotals();
  void dropIndex();
  [[nodiscard]] bool createTopicIndexFromFile(const Header& header, const std::string& indexPath);
  [[nodiscard]] bool readSideChunk(osmik::File* file, std::string* data) const;
  [[nodiscard]] std::shared_ptr<TopicIndex> decoded(std::uint32_t topicId) const;
  class NamedBytes;
  /// Topics whose entries name more bytes than the file has are refused, with an error line: what
  /// others see is a topic without messages.
  [[nodiscard]] bool isRefused(std::uint32_t topicId, const NamedBytes& named) const;
  void refuseRepeating();
  /// Null where there is none, or it was refused.
  [[nodiscard]] const EncodedTopic* encodedTopic(std::uint32_t topicId) const;

  [[nodiscard]] bool seekToChunk(const Chunk* chunk, std::int64_t offset, const Log& (*log)());
  [[nodiscard]] bool readFraming(Chunk* chunk, std::int64_t offset, Stored* stored);
  [[nodiscard]] bool readFramingByField(Chunk* chunk, std::int64_t offset, Stored* stored);
  [[nodiscard]] std::int64_t skipData(std::uint32_t size, std::int64_t* next);
  [[nodiscard]] bool readStored(std::string* data, Stored* stored);
  [[nodiscard]] bool holdsStored(const Stored& stored);
  [[nodiscard]] bool isWhole(std::int64_t count, Stored* stored);
  [[nodiscard]] bool sumStored(Stored* stored, std::uint32_t* sum);
  [[nodiscard]] bool takeStored(Stored* stored, std::string_view* data);
  [[nodiscard]] bool holdStored(Stored* stored, std::string_view* data);
  [[nodiscard]] static bool isSound(std::uint32_t computed, std::int64_t offset,
                                    const Stored& stored);
  [[nodiscard]] bool isPacked(const Chunk& chunk, const Stored& stored) const;
  [[nodiscard]] std::int64_t restore(const Chunk& chunk, std::int64_t offset, const Stored& stored,
                                     std::string_view packed, std::string* data) const;
  [[nodiscard]] std::string takeSpare();
  void giveSpare(std::string spare);
  void dropSpares();
  [[nodiscard]] bool seekToMessage(const MsgIndex& index, const std::string* data);
  [[nodiscard]] std::int64_t findChunk();
  template <typename T>
  [[nodiscard]] std::int64_t readValue(T* value);
  [[nodiscard]] std::int64_t bytesLeft(std::int64_t wanted);

  const Log log_{"BagReader"};
  bool hasIndex_ = false;
  Keep keep_ = Keep::kEntries;
  std::int64_t soundIndexAt_ = -1;  ///< offset of the index chunk that open() has verified
  std::int64_t fileSize_ = 0;       ///< as last looked at: a bag may still be growing
  std::int64_t sizeAtOpen_ = 0;
  TopicNames topicNames_;
  mutable std::mutex indexMutex_;  ///< guards the index of the open bag, topicIndexes_ included
  std::string indexData_;          ///< serialized; empty where all of it is decoded
  std::map<std::uint32_t, EncodedTopic> encodedTopics_;  ///< by id, of indexData_
  mutable std::set<std::uint32_t> acceptedTopics_;       ///< encoded, and looked at
  // Memory that is kept to be used again; guarded by mutex_.
  std::vector<std::string> spares_;  ///< for stored bytes, while a message is restored from them
  std::string packed_;               ///< of verify(): stored bytes
  std::string restored_;             ///< and what they restore to
};

}  // namespace morva

#endif  // MORVA_STORAGE_BAG_READER_H_
