#ifndef MORVA_TESTS_SUPPORT_BAG_BUILDER_H_
#define MORVA_TESTS_SUPPORT_BAG_BUILDER_H_

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

/// Bytes of a bag, put together by hand: with no code of the product, so that a mistake there does
/// not hide itself. Every piece can be made apart, and be wrong.
namespace morva::test {

/// zlib's CRC-32, bit by bit.
[[nodiscard]] std::uint32_t referenceCrc32(std::string_view bytes);

/// `value` in little-endian order.
template <std::integral T>
[[nodiscard]] std::string le(std::type_identity_t<T> value) {
  std::string bytes;
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    bytes += static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i) & 0xFF);
  }
  return bytes;
}

/// The little-endian number at `offset`.
template <std::integral T>
[[nodiscard]] T numberAt(std::string_view bytes, std::size_t offset) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    value |= std::uint64_t{static_cast<unsigned char>(bytes.at(offset + i))} << (8 * i);
  }
  return static_cast<T>(value);
}

/// Puts `value` over the bytes at `offset`.
template <std::integral T>
void patch(std::string* bytes, std::size_t offset, std::type_identity_t<T> value) {
  bytes->replace(offset, sizeof(T), le<T>(value));
}

struct HeaderFields {
  std::string tag = "KBAG";
  std::uint8_t reserved = 0;
  std::uint8_t compression = 0;
  std::uint16_t version = 1;
  std::uint64_t creationTimeUs = 1'700'000'000'123'456;
  std::uint64_t dataStart = 0;
  std::uint64_t indexChunkOffset = 0;
  std::string privateData;
  char filler = '\x5A';
};

/// The 4096 bytes of a file header, checksum included.
[[nodiscard]] std::string headerBytes(const HeaderFields& fields);
/// Makes the checksum of a changed header right again.
void fixHeaderCrc(std::string* bag);

/// A chunk with its right sizes and checksum.
[[nodiscard]] std::string chunkBytes(std::uint16_t type, const std::string& header,
                                     const std::string& data);
/// Header of a definition or index chunk.
[[nodiscard]] std::string timedChunkHeader(std::size_t rawSize);

[[nodiscard]] std::string topicRecord(std::uint32_t id, const std::string& name);

struct BuiltMessage {
  std::uint32_t topicId = 0;
  std::string stored;         ///< payload as stored
  std::uint32_t rawSize = 0;  ///< 0: the stored size
  std::uint32_t count = 1;
  std::int64_t timeUs = 1'700'000'000'000'000;
  std::int64_t firstTimeUs = 1'700'000'000'000'001;
  std::int64_t secondTimeUs = 1'700'000'000'000'002;
};

[[nodiscard]] std::string messageChunk(const BuiltMessage& message);

/// One topic of an index, as protobuf bytes are made from it.
struct BuiltIndex {
  std::uint32_t topicId = 0;
  std::uint32_t countSum = 0;
  std::uint64_t rawSizeSum = 0;
  std::int64_t startTimeUs = 0;
  std::int64_t endTimeUs = 0;
  std::vector<std::uint64_t> offsets;
  std::vector<BuiltMessage> messages;
};

/// The serialized index message: varints written here, not by protobuf.
[[nodiscard]] std::string indexBytes(const std::vector<BuiltIndex>& topics);

/// A whole bag. Topics are written in the order given, so give them in ascending order of names.
class BagBuilder {
 public:
  BagBuilder& topic(std::uint32_t id, const std::string& name);
  BagBuilder& message(const BuiltMessage& message);

  /// Header, definition, messages, index chunk, padding.
  [[nodiscard]] std::string build() const;
  /// The same without index chunk and offsets: what is left of a recording that was killed.
  [[nodiscard]] std::string buildUnclosed() const;
  /// The ".index" side file of either.
  [[nodiscard]] std::string buildSideFile() const;

  [[nodiscard]] std::uint64_t dataStart() const;
  /// Offset of the i-th message's chunk; of the index chunk when i is the number of messages.
  [[nodiscard]] std::uint64_t chunkOffset(std::size_t i) const;
  [[nodiscard]] std::string index() const;

  HeaderFields header;  ///< offsets are filled in

 private:
  [[nodiscard]] std::string body() const;

  std::string records_;
  std::vector<std::uint32_t> topicIds_;
  std::vector<BuiltMessage> messages_;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_BAG_BUILDER_H_
