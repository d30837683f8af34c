#ifndef MORVA_STORAGE_BAG_WRITER_H_
#define MORVA_STORAGE_BAG_WRITER_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/log.h"
#include "storage/bag_file.h"
#include "storage/header_image.h"
#include "storage/loss_gauge.h"

namespace morva {

/// Creates a bag file: header, definition chunk, one chunk per message, and at close() the index
/// chunk, the padding and the final header. Never reads the file back.
///
/// Closed -> open() -> setTopics() -> write() any number of times -> close(). The destructor
/// closes.
///
/// A chunk that failed half-way is cut off again, so that what is written later still lies where
/// the index says. Where even that fails, every later write fails, and close() tries once more.
/// Accepted bytes may wait in the write buffer: only a close() that returns true promises that all
/// of them have reached the file.
///
/// A writer with a loss bound, and one that was ever told to flush, keeps what it promises where
/// the machine stops: the file's prefix up to the last flush is on the storage device, nothing is
/// ever written over it but the header's first sector, in one piece (where the private data leave
/// room there), and close() brings the index to the device before the header names it.
///
/// Threads: chunks never interleave, but calls are made by one thread at a time.
class BagWriter : public BagFile {
 public:
  /// @param writeBufferSize  Bytes gathered before they are handed to the system; 0: none.
  /// @param privateData      For the header, at most layout::kMaxPrivateBytes (open() checks it).
  BagWriter(CompressionType type, std::uint32_t writeBufferSize, std::string privateData);
  ~BagWriter() override;

  /// Bounds what a failing machine may cost, see MorvaBag::lossBound. Before open().
  void setLossBound(const LossBound& bound) { unsynced_ = LossGauge(bound); }

  /// Creates `path`, or truncates what is there, and writes the first header.
  /// @return 0, also when a file is open already, which is left alone; kOpenFailed or
  ///         kOpenPrivateData, with the file left on the disk.
  [[nodiscard]] int open(const std::string& path) override;

  /// Numbers the topics in the given order and writes the definition chunk; flushes where there is
  /// a loss bound. Once, before any write().
  /// @param topics  Names; those of 60 characters and more are cut to 59 in the file. A repeated
  /// name
  ///                keeps its first number.
  /// @return False after an error line; no topic is known then.
  [[nodiscard]] bool setTopics(const std::vector<std::string>& topics);

  /// Appends one message.
  /// @param header  rawSize is the length of `data`; storedSize equal to it stores the payload as
  /// it
  ///                stands, 0 compresses it where the bag has a codec. topicId is not read.
  /// @return Length of `data`, or -1 after an error line; what was written before is not affected.
  [[nodiscard]] std::int64_t write(const TopicHeader& header, const std::string& topic,
                                   const std::string& data) override;

  /// Brings everything that was accepted to the storage device, and the file's name the first time.
  /// @return False after an error line. What the device has failed once fails for good.
  [[nodiscard]] bool flush();

  /// Writes index, padding and final header, and closes. True when nothing is open.
  /// @return False, after a log line, when something that was accepted did not reach the file.
  bool close() override;

 private:
  /// A chunk about to be written; borrows its bytes for the call.
  struct ChunkParts {
    std::uint16_t type = 0;
    bool compress = false;  ///< if the bag has a codec
    std::string_view header;
    std::string_view data;  ///< raw
  };

  [[nodiscard]] bool updateHeader(const Header& header);
  [[nodiscard]] bool keepBound(std::uint64_t chunkBytes);
  [[nodiscard]] bool sync();
  [[nodiscard]] std::int64_t writeChunk(const ChunkParts& chunk);
  [[nodiscard]] std::int64_t writeIndexChunk();
  [[nodiscard]] bool writePadding(std::uint64_t bytes);

  void initHeader();
  void numberTopics(const std::vector<std::string>& topics);
  [[nodiscard]] std::string topicRecords() const;
  [[nodiscard]] std::string_view storedForm(const ChunkParts& chunk);
  [[nodiscard]] bool appendChunk(const ChunkParts& chunk, std::string_view payload);
  [[nodiscard]] bool cutOff(std::uint64_t offset);
  int dropFile(OpenCode code);

  const Log log_{"BagWriter"};
  const std::uint32_t writeBufferSize_;
  const std::string privateData_;
  std::uint64_t writeOffset_ =
      0;                        ///< where the next chunk begins, bytes from the start of the file
  bool hasBrokenTail_ = false;  ///< bytes of a failed chunk may lie behind writeOffset_
  bool isComplete_ = true;      ///< everything that close() wrote so far was accepted
  HeaderImage image_;           ///< the header as written last
  LossGauge unsynced_;
  bool isSynced_ = false;      ///< flushes and their order matter
  bool isNameSynced_ = false;  ///< the file's name is on the storage device
  bool hasSyncFailed_ = false;
  std::string compressed_;  ///< output of the codec, kept to be used again
  std::string head_;        ///< of the chunk being written
};

}  // namespace morva

#endif  // MORVA_STORAGE_BAG_WRITER_H_
