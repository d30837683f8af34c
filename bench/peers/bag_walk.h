#ifndef MORVA_BENCH_PEERS_BAG_WALK_H_
#define MORVA_BENCH_PEERS_BAG_WALK_H_

#include <cstdint>
#include <libdeflate.h>
#include <string>
#include <vector>

#include "bench/peers/codec.h"
#include "bench/peers/file_parts.h"

namespace peers {

inline constexpr std::size_t kHeaderBytes = 4096;
inline constexpr std::size_t kCompressionOffset = 5;
inline constexpr std::size_t kFrameBytes = 8;     // chunk size, type, header size
inline constexpr std::size_t kRawSizeOffset = 8;  // in a chunk's header, as the next ones
inline constexpr std::size_t kTopicOffset = 32;
inline constexpr std::size_t kTopicHeaderBytes = 36;
inline constexpr std::size_t kMessageDataOffset = kFrameBytes + kTopicHeaderBytes + 4;
inline constexpr unsigned kMessageChunk = 1;
inline constexpr unsigned kIndexChunk = 255;

/// The framing of a chunk.
struct Frame {
  unsigned type = 0;
  std::uint32_t topic = 0;       ///< of a message
  std::uint32_t rawSize = 0;     ///< bytes before compression
  std::uint32_t storedSize = 0;  ///< bytes that come next in the file, before the checksum
  std::uint64_t dataOffset = 0;  ///< of those in the file
};

/// Walks the chunks of a bag front to back. Whoever takes a frame takes its data and checksum too.
class BagWalk {
 public:
  explicit BagWalk(const char* path) : file_(path) {
    compression_ = file_.take(kHeaderBytes)[kCompressionOffset];
  }

  [[nodiscard]] unsigned compression() const { return compression_; }
  [[nodiscard]] FrontToEnd& file() { return file_; }

  Frame next() {
    const unsigned char* const start = file_.take(kFrameBytes);
    Frame frame;
    frame.type = load<std::uint16_t>(start + 4);
    const std::size_t headerSize = load<std::uint16_t>(start + 6);
    const unsigned char* const header = file_.take(headerSize + 4);
    frame.rawSize = load<std::uint32_t>(header + kRawSizeOffset);
    frame.storedSize = load<std::uint32_t>(header + headerSize);
    if (frame.type == kMessageChunk) frame.topic = load<std::uint32_t>(header + kTopicOffset);
    frame.dataOffset = offset_ + kFrameBytes + headerSize + 4;
    offset_ = frame.dataOffset + frame.storedSize + 4;
    return frame;
  }

 private:
  FrontToEnd file_;
  unsigned compression_ = 0;
  std::uint64_t offset_ = kHeaderBytes;
};

inline std::vector<unsigned char>& grown(std::vector<unsigned char>& buffer, std::size_t size) {
  if (buffer.size() < size) buffer.resize(size);
  return buffer;
}

/// The payloads of a bag's messages in file order, verified and restored.
class Payloads {
 public:
  explicit Payloads(const char* path) : walk_(path), codec_(walk_.compression()) {}

  /// Goes on to the next message. @return False after the last one.
  bool next() {
    while (true) {
      const Frame frame = walk_.next();
      if (frame.type == kIndexChunk) return false;
      restore(frame);
      if (frame.type == kMessageChunk) {
        topic_ = frame.topic;
        return true;
      }
      readTopics();
    }
  }

  [[nodiscard]] const std::string& topic() const { return topics_.at(topic_); }
  [[nodiscard]] const unsigned char* data() const { return data_; }
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  static constexpr std::size_t kTopicRecordBytes = 64;  // u32 number, name ended by a NUL

  void restore(const Frame& frame) {
    std::uint32_t crc = 0;
    walk_.file().into(grown(stored_, frame.storedSize).data(), frame.storedSize,
                      [&crc](const unsigned char* bytes, std::size_t size) {
                        crc = libdeflate_crc32(crc, bytes, size);
                      });
    if (load<std::uint32_t>(walk_.file().take(4)) != crc) fail("a checksum is wrong");
    data_ = stored_.data();
    size_ = frame.rawSize;
    if (walk_.compression() == 0 || frame.rawSize == frame.storedSize) return;
    codec_.decompress(stored_.data(), frame.storedSize, grown(raw_, frame.rawSize).data(),
                      frame.rawSize);
    data_ = raw_.data();
  }

  void readTopics() {
    for (std::size_t at = 0; at + kTopicRecordBytes <= size_; at += kTopicRecordBytes) {
      const auto number = load<std::uint32_t>(data_ + at);
      if (number >= topics_.size()) topics_.resize(number + 1);
      topics_[number] = reinterpret_cast<const char*>(data_ + at + 4);
    }
  }

  BagWalk walk_;
  Codec codec_;
  std::vector<unsigned char> stored_;
  std::vector<unsigned char> raw_;
  std::vector<std::string> topics_;
  std::uint32_t topic_ = 0;
  const unsigned char* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace peers

#endif  // MORVA_BENCH_PEERS_BAG_WALK_H_
