#ifndef MORVA_RECORDS_H_
#define MORVA_RECORDS_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace morva {

/// How the chunks of a bag are compressed. Every other value means: not at all.
enum class CompressionType : std::uint32_t {
  kNone = 0,
  kLz4 = 2,   ///< LZ4, raw block format
  kZstd = 3,  ///< Zstandard, level 1
};

/// How a bag is opened. Every value but kWrite reads.
enum class BagMode : std::uint32_t {
  kRead = 0,
  kWrite = 1,
};

/// How much of a recording may be lost when the machine stops: its power fails, its system crashes.
/// What is not on the storage device is brought there as soon as either limit is reached; 0: no
/// such limit. See MorvaBag::lossBound.
struct LossBound {
  /// Bytes of the file. 1: every message is on the storage device when its write returns.
  std::uint64_t bytes = 0;
  /// Age of a message, us. Looked at when messages are written: in a pause nothing is flushed.
  std::int64_t intervalUs = 0;

  [[nodiscard]] bool isSet() const { return bytes > 0 || intervalUs > 0; }
};

/// Locates one message: everything that a read of its payload needs. A plain record of fixed size,
/// copied by value; it stays valid after the bag is closed, as does the view that holds it.
struct MsgIndex {
  static constexpr std::size_t kTopicNameBytes = 64;

  std::uint32_t topicId = 0;     ///< number of the topic in the bag's topic table
  std::uint32_t count = 0;       ///< samples in the message, as its writer said; 0 cannot be read
  std::uint32_t rawSize = 0;     ///< payload bytes before compression
  std::uint32_t storedSize = 0;  ///< payload bytes as stored; equal to rawSize: not compressed
  /// First and second header time, us since the Unix epoch. The first one is the time that selects.
  std::array<std::int64_t, 2> headerTimes{};
  std::int64_t writeTime = 0;     ///< us since the Unix epoch, as the writer gave it
  std::uint64_t chunkOffset = 0;  ///< bytes from the start of the bag file to the message's chunk
  std::array<char, kTopicNameBytes> topicName{};  ///< NUL-terminated, cut to 63 characters
};

/// An ordered selection of messages.
struct View {
  using MsgIndex = morva::MsgIndex;

  std::vector<MsgIndex> indexes;
};

/// What a bag holds of one topic.
struct TopicInfo {
  std::uint32_t topicId = 0;
  std::uint32_t messageCount = 0;  ///< sum of the count words of the topic's messages
  std::uint64_t total = 0;         ///< payload bytes before compression
  std::int64_t startTime = 0;      ///< smallest first header time, us since the Unix epoch
  std::int64_t endTime = 0;        ///< largest second header time, us since the Unix epoch
  std::string name;
};

/// What a bag holds.
struct BagInfo {
  std::uint32_t versionByte0 = 0;  ///< low byte of the format version
  std::uint32_t versionByte1 = 0;  ///< high byte of the format version
  std::uint32_t topicCount = 0;    ///< topics that the bag defines, those without messages included
  std::uint32_t chunkCount = 0;    ///< messages of the topics listed below
  std::uint64_t dataStart = 0;     ///< file offset of the first message chunk
  std::uint64_t indexChunkOffset = 0;  ///< file offset of the index chunk; 0: there is none
  std::vector<TopicInfo> topics;       ///< topics that hold data, in ascending byte order of names
};

/// The device that recorded a bag.
struct DeviceInfo {
  std::string deviceName;
  std::string deviceModel;
  std::string serialNumber;
  std::string hardwareVersion;
  std::string firmwareVersion;
  std::string softwareVersion;
  std::string manufactureDate;
  std::vector<std::string> sensors;
};

}  // namespace morva

#endif  // MORVA_RECORDS_H_
