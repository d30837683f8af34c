#ifndef MORVA_KIT_DOCTOR_ACCOUNT_H_
#define MORVA_KIT_DOCTOR_ACCOUNT_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kit/doctor/byte_source.h"
#include "storage/bag_file.h"

/// What is known about a recording once it was looked through.
namespace morva::doctor {

enum class Verdict : std::uint8_t {
  kSound,
  kDamaged,     ///< something is damaged or missing; messages can be read
  kUnreadable,  ///< no message can be read
};

/// How much is known about a message beside its payload, whose checksum is right in any case. No
/// checksum covers a chunk's header.
enum class Proof : std::uint8_t {
  kConfirmed,   ///< the index says the same as the chunk's header
  kRestored,    ///< the chunk's header or framing is damaged; the index says what it was
  kUnverified,  ///< the index does not know the message, or there is none
};

/// A message that can be read.
struct Message {
  std::uint64_t offset = 0;  ///< of its chunk, in this file
  BagFile::TopicHeader header;
  std::uint32_t crc = 0;  ///< of the stored bytes
  Proof proof = Proof::kUnverified;
};

/// A message that the index has and the file has no more.
struct LostMessage {
  std::uint64_t writtenAt = 0;  ///< the offset that the index gives
  BagFile::TopicHeader header;
};

enum class Part : std::uint8_t {
  kFileHeader,
  kDefinition,
  kMessages,
  kChunkHeader,  ///< of a message whose payload is whole, and which the index restores
  kIndex,
  kPadding,
  kBehindEnd,   ///< bytes that belong to nothing, behind the end of the recording
  kRepetition,  ///< chunks that stand elsewhere too
};

/// The last or first message beside damage.
struct Neighbour {
  std::int64_t topicId = -1;
  std::int64_t timeUs = 0;  ///< first header time
};

/// A stretch of the file that is not as it was written. One of length 0 is a place where something
/// was cut out.
struct Damage {
  ByteRange range;
  Part part = Part::kMessages;
  std::map<std::int32_t, std::uint64_t> lost;  ///< messages, by topic id
  /// True: `lost` is the index's account. False: so many chunks say that they were messages; there
  /// may have been more.
  bool isLostKnown = false;
  std::optional<std::int64_t> firstLostUs, lastLostUs;  ///< first header times
  std::optional<Neighbour> before, behind;
  bool isZeros = false;       ///< nothing but zero bytes
  bool isUnreadable = false;  ///< the disk did not give all of it
};

enum class HeaderState : std::uint8_t {
  kSound,
  kDamaged,  ///< the tag is there, the checksum is wrong
  kMissing,  ///< no tag, or not even 4096 bytes
};

enum class IndexState : std::uint8_t {
  kSound,
  kMoved,      ///< sound, but not where the header says
  kDamaged,    ///< the header says that there is one
  kNotClosed,  ///< the recording was cut off before one was written
  kUnknown,    ///< none was found, and no header says whether there was one
};

enum class SideState : std::uint8_t {
  kNone,
  kMatches,
  kOther,  ///< belongs to another recording, or to an earlier state of this one
  kDamaged,
};

/// A wide space between two messages of a topic that otherwise comes at a regular rate.
struct Gap {
  std::int64_t fromUs = 0, toUs = 0;  ///< first header times of the messages around it
  std::uint64_t missing = 0;          ///< messages that would have come at the topic's rate
};

/// A message whose time is before that of the one written before it.
struct StepBack {
  std::uint64_t offset = 0;
  std::int64_t fromUs = 0, toUs = 0;
};

struct TopicAccount {
  std::string name;             ///< empty: unknown
  std::uint64_t confirmed = 0;  ///< messages, by proof
  std::uint64_t restored = 0;
  std::uint64_t unverified = 0;
  std::uint64_t lost = 0;                ///< by the index's account
  std::uint64_t bytes = 0;               ///< payload bytes before compression
  std::uint64_t unrestorable = 0;        ///< the checksum is right, but decompression fails
  std::uint64_t undecodable = 0;         ///< payloads that are not the topic's kind of message
  std::int64_t firstUs = 0, lastUs = 0;  ///< least and greatest first header time
  std::int64_t periodUs = 0;             ///< median time between messages; 0: too few
  std::vector<Gap> gaps;
  std::vector<StepBack> stepsBack;

  [[nodiscard]] std::uint64_t readable() const { return confirmed + restored + unverified; }
};

struct Account {
  std::string path;
  std::uint64_t fileBytes = 0;
  std::string problem;  ///< why nothing could be looked at: empty where it could
  Verdict verdict = Verdict::kUnreadable;
  bool isComplete = true;  ///< not interrupted

  HeaderState headerState = HeaderState::kMissing;
  BagFile::Header header;        ///< the first 4096 bytes, as they are
  std::uint8_t compression = 0;  ///< by the header, or found out from the chunks
  bool isCompressionGuessed = false;

  bool isDefinitionSound = false;
  std::map<std::uint32_t, std::string> topicNames;  ///< by id

  IndexState indexState = IndexState::kUnknown;
  std::uint64_t indexOffset = 0;  ///< where it was found
  SideState sideState = SideState::kNone;
  std::uint64_t sideEntries = 0;
  std::optional<BagFile::Header> sideHeader;  ///< sound, of a side file that is this recording's

  bool hasIndex = false;  ///< one of the two gives an account of the messages
  std::uint64_t indexEntries = 0;
  std::uint64_t pointNowhere = 0;  ///< entries whose message is not where they say
  std::uint64_t moved = 0;         ///< of these, found elsewhere
  std::uint64_t notInIndex = 0;    ///< messages in the file that the index does not know
  std::uint64_t repeated = 0;      ///< messages that stand in the file more than once
  std::uint64_t withinDamage = 0;  ///< chunks in the remains of messages that they are not

  std::vector<Message> messages;                ///< in the order in which they were written
  std::vector<LostMessage> lost;                ///< by the index's account
  std::vector<Damage> damage;                   ///< in file order
  std::map<std::int32_t, TopicAccount> topics;  ///< by id
  std::uint64_t unreadableBytes = 0;            ///< that the disk did not give
};

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_ACCOUNT_H_
