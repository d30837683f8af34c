#ifndef MORVA_STORAGE_BAG_FILE_H_
#define MORVA_STORAGE_BAG_FILE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "morva/records.h"
#include "platform/compress.h"
#include "platform/file.h"
#include "storage/bag_layout.h"

namespace morva {

/// Base of the two storage objects, BagReader and BagWriter, with the records that they share. Its
/// own operations fail: each derived class overrides those that it can do.
class BagFile {
 public:
  /// Results of open(). Values reach logs and callers: never renumber, only append.
  enum OpenCode : int {
    kOpenOk = 0,
    kOpenNoIndex = 1,      ///< reading: open, but no usable index
    kOpenFailed = 4,       ///< the file cannot be opened or created
    kOpenChecksum = 6,     ///< reading: the header's checksum is wrong
    kOpenMalformed = 7,    ///< reading: short file, wrong tag, bad definition chunk
    kOpenPrivateData = 8,  ///< writing: too much private data, or the header was not written
  };

  /// The 4096-byte file header as it stands in the file, with access to its fields.
  class Header {
   public:
    [[nodiscard]] std::uint8_t compression() const;
    [[nodiscard]] std::uint16_t version() const;
    [[nodiscard]] std::uint64_t creationTime() const;  ///< us since the Unix epoch
    [[nodiscard]] std::uint64_t dataStart() const;
    [[nodiscard]] std::uint64_t indexChunkOffset() const;  ///< 0: no index chunk
    [[nodiscard]] std::uint32_t privateSize() const;       ///< as stored, not checked
    [[nodiscard]] std::uint32_t checksum() const;
    /// The private data, cut to what the header can hold.
    [[nodiscard]] std::string privateData() const;

    void setCompression(std::uint8_t value);
    void setVersion(std::uint16_t value);
    void setCreationTime(std::uint64_t value);
    void setDataStart(std::uint64_t value);
    void setIndexChunkOffset(std::uint64_t value);
    void setPrivateSize(std::uint32_t value);
    /// Copies `data`, cut to what the header can hold, over the private data; the size is set
    /// apart.
    void setPrivateData(std::string_view data);

    std::array<char, layout::kHeaderBytes> bytes{};
  };

  /// A chunk in memory.
  struct Chunk {
    std::uint32_t size = 0;  ///< reading: what the chunk says it takes in the file; not checked
    std::uint16_t type = 0;
    bool compress = false;    ///< writing: compress the data, if the bag has a codec
    bool headerOnly = false;  ///< reading: skip data and checksum
    std::string header;       ///< chunk header bytes
    std::string data;         ///< raw on the writer's side; restored on the reader's
  };

  /// One message, as the index knows it.
  struct TopicHeader {
    std::int64_t time = 0;  ///< us since the Unix epoch
    std::uint32_t rawSize = 0;
    std::uint32_t count = 0;  ///< the caller's word, summed per topic
    std::array<std::int64_t, 2> headerTimes{};
    std::int32_t topicId = -1;  ///< -1 until the writer has set it
    /// Given to the writer: equal to rawSize to store the payload as it stands, 0 to compress it.
    /// In an index: bytes of the payload as stored.
    std::uint32_t storedSize = 0;
  };

  /// What an index says of all messages of one topic.
  struct TopicTotals {
    std::uint32_t countSum = 0;
    std::uint64_t rawSizeSum = 0;
    std::int64_t startTime = 0;  ///< smallest first header time; 0 until the first message
    std::int64_t endTime = 0;    ///< largest second header time
    std::size_t chunks = 0;      ///< messages
  };

  /// The messages of one topic, in writing order.
  struct TopicIndex {
    /// Adds a message whose chunk begins at `chunkOffset`.
    void append(const TopicHeader& entry, std::uint64_t chunkOffset);
    [[nodiscard]] TopicTotals totals() const;

    std::uint32_t countSum = 0;
    std::uint64_t rawSizeSum = 0;
    std::int64_t startTime = 0;  ///< smallest first header time; 0 until the first message
    std::int64_t endTime = 0;    ///< largest second header time
    std::vector<std::uint64_t> chunkOffsets;
    std::vector<TopicHeader> entries;  ///< parallel to chunkOffsets

   private:
    void grow();
  };

  using TopicIds = std::map<std::string, std::uint32_t>;
  using TopicIndexes = std::map<std::uint32_t, std::shared_ptr<TopicIndex>>;

  BagFile() = default;
  BagFile(const BagFile&) = delete;
  BagFile& operator=(const BagFile&) = delete;
  virtual ~BagFile() = default;

  /// @return 0 or a code above 0.
  [[nodiscard]] virtual int open(const std::string& path);
  /// @return False when something did not reach the file.
  virtual bool close();
  /// @return A length, or -1.
  [[nodiscard]] virtual std::int64_t read(Chunk* chunk, std::int64_t offset, std::int64_t* next);
  [[nodiscard]] virtual std::int64_t read(const MsgIndex& index, std::string* data);
  [[nodiscard]] virtual std::int64_t readNextChunk(Chunk* chunk, std::int64_t offset,
                                                   std::int64_t* next);
  [[nodiscard]] virtual std::int64_t write(const TopicHeader& header, const std::string& topic,
                                           const std::string& data);

  [[nodiscard]] const Header& header() const { return header_; }
  [[nodiscard]] const TopicIds& topicIds() const { return topicIds_; }
  [[nodiscard]] virtual const TopicIndexes& topicIndexes() const { return topicIndexes_; }
  /// The index of a topic by name; empty when the topic is unknown or has none.
  [[nodiscard]] virtual std::shared_ptr<TopicIndex> topicIndex(const std::string& topic) const;

 protected:
  /// The codec of a header's compression byte; empty for "never compressed".
  [[nodiscard]] static std::shared_ptr<const basalt::Compressor> makeCompressor(std::uint8_t type);

  std::string path_;
  std::mutex mutex_;  ///< held for every sequence of seek and read, or of chunk writes
  std::shared_ptr<osmik::File> file_;
  Header header_;
  TopicIds topicIds_;
  mutable TopicIndexes topicIndexes_;  ///< a reader adds topics when they are asked for
  std::shared_ptr<const basalt::Compressor> compressor_;
};

}  // namespace morva

#endif  // MORVA_STORAGE_BAG_FILE_H_
