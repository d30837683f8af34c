#include "messages/lidar_decoder.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "messages/sample_scale.h"
#include "platform/byte_order.h"

namespace morva {
namespace {

using Byte = std::uint8_t;

// Tags: the field's number and how it is coded.
constexpr Byte kArrayMsgs = 0x0A;
constexpr Byte kMsgHeader = 0x0A;
constexpr Byte kMsgPoint = 0x12;
constexpr Byte kHeaderTimestamp = 0x08;
constexpr Byte kHeaderScale = 0x10;
constexpr Byte kHeaderSeq = 0x18;
constexpr Byte kPointX = 0x08;
constexpr Byte kPointY = 0x10;
constexpr Byte kPointZ = 0x18;
constexpr Byte kPointIntensity = 0x20;
constexpr Byte kPointRing = 0x28;
constexpr Byte kPointTimeOffset = 0x30;

constexpr std::size_t kVarintBytes = 8;  // longer ones are left to protobuf
constexpr std::size_t kLengthBytes = 5;  // protobuf refuses longer ones, zeros at the end or not
/// What reading a point may touch: six tags and numbers, or the whole of its at most 127 bytes, and
/// the word that is read at once.
constexpr std::size_t kPointReach = 127 + 1 + kVarintBytes;

/// Decodes a number of up to eight bytes at `at`, of which eight must be readable.
/// @return The byte behind it, or null where the number is longer than that.
[[gnu::noinline]] const Byte* readLongVarint(const Byte* at, std::uint64_t* value) {
  const auto word = loadLe<std::uint64_t>(at);
  const std::uint64_t ends = ~word & 0x8080'8080'8080'8080;
  if (ends == 0) return nullptr;
  // The bytes up to the first without its top bit set, then their groups of seven bits closed up,
  // in pairs, fours and eight.
  std::uint64_t bits = word & (ends ^ (ends - 1));
  bits = (bits & 0x007F'007F'007F'007F) | (bits & 0x7F00'7F00'7F00'7F00) >> 1;
  bits = (bits & 0x0000'3FFF'0000'3FFF) | (bits & 0x3FFF'0000'3FFF'0000) >> 2;
  *value = (bits & 0x0000'0000'0FFF'FFFF) | (bits & 0x0FFF'FFFF'0000'0000) >> 4;
  return at + std::countr_zero(ends) / 8 + 1;
}

/// The same. One to three bytes are what points have, and mostly as many as in the point before: a
/// predicted jump is faster than arithmetic that waits for the length.
[[gnu::always_inline]] inline const Byte* readVarint(const Byte* at, std::uint64_t* value) {
  const auto word = loadLe<std::uint32_t>(at);
  if ((word & 0x80) == 0) {
    *value = word & 0x7F;
    return at + 1;
  }
  if ((word & 0x8000) == 0) {
    *value = (word & 0x7F) | (word & 0x7F00) >> 1;
    return at + 2;
  }
  if ((word & 0x80'0000) == 0) {
    *value = (word & 0x7F) | (word & 0x7F00) >> 1 | (word & 0x7F'0000) >> 2;
    return at + 3;
  }
  return readLongVarint(at, value);
}

std::int64_t unzigzag(std::uint64_t value) {
  return static_cast<std::int64_t>((value >> 1) ^ (0 - (value & 1)));
}

std::int32_t unzigzag32(std::uint32_t value) {
  return static_cast<std::int32_t>((value >> 1) ^ (0 - (value & 1)));
}

/// Bytes that are consumed from the front.
class Input {
 public:
  Input(const Byte* begin, const Byte* end) : at_(begin), end_(end) {}

  [[nodiscard]] bool isEmpty() const { return at_ == end_; }
  [[nodiscard]] const Byte* at() const { return at_; }
  [[nodiscard]] const Byte* end() const { return end_; }
  [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(end_ - at_); }

  /// Takes a byte where it is the next one.
  [[nodiscard]] bool take(Byte byte) {
    if (isEmpty() || *at_ != byte) return false;
    ++at_;
    return true;
  }

  [[nodiscard]] bool takeVarint(std::uint64_t* value, std::size_t maxBytes = kVarintBytes) {
    *value = 0;
    for (unsigned shift = 0; shift < 7 * maxBytes && !isEmpty(); shift += 7) {
      const Byte byte = *at_++;
      *value |= static_cast<std::uint64_t>(byte & 0x7FU) << shift;
      if (byte < 0x80) return true;
    }
    return false;
  }

  /// Takes a length and as many bytes.
  [[nodiscard]] bool takeSized(Input* part) {
    std::uint64_t length = 0;
    if (!takeVarint(&length, kLengthBytes) || length > size()) return false;
    *part = Input(at_, at_ + length);
    at_ += length;
    return true;
  }

 private:
  const Byte* at_;
  const Byte* end_;
};

struct Header {
  std::int64_t timestamp = 0;
  std::int64_t scale = 0;
  std::uint32_t seq = 0;
};

/// Takes a field that may be missing; its value is 0 then.
bool takeField(Byte tag, Input* input, std::uint64_t* value) {
  return !input->take(tag) || input->takeVarint(value);
}

bool readHeader(Input input, Header* header) {
  std::uint64_t timestamp = 0;
  std::uint64_t scale = 0;
  std::uint64_t seq = 0;
  if (!takeField(kHeaderTimestamp, &input, &timestamp)) return false;
  if (!takeField(kHeaderScale, &input, &scale)) return false;
  if (!takeField(kHeaderSeq, &input, &seq)) return false;
  *header = {static_cast<std::int64_t>(timestamp), unzigzag(scale),
             static_cast<std::uint32_t>(seq)};
  return input.isEmpty() && seq <= std::numeric_limits<std::uint32_t>::max();
}

/// What a pass over the fields of a LidarPointMsg finds, without a look into the points.
struct Survey {
  Header header;
  std::size_t points = 0;
  Input pointFields{nullptr, nullptr};  ///< tag, length and content of every point
};

bool survey(Input message, Survey* result) {
  if (message.take(kMsgHeader)) {
    Input header(nullptr, nullptr);
    if (!message.takeSized(&header) || !readHeader(header, &result->header)) return false;
  }
  result->pointFields = message;
  const Byte* at = message.at();
  while (message.end() - at >= 2) {
    const Byte length = at[1];
    if (at[0] != kMsgPoint || length > 0x7F || length > message.end() - at - 2) return false;
    at += 2 + length;
    ++result->points;
  }
  return at == message.end();
}

struct CodedPoint {
  std::uint64_t x = 0, y = 0, z = 0;
  std::uint64_t intensity = 0;
  std::uint64_t ring = 0;
  std::uint64_t timeOffset = 0;
};

/// Decodes the fields of one point, `at` to `end`; kPointReach bytes must be readable, and the one
/// at `end` must be none of the point's tags.
[[gnu::always_inline]] inline bool readPoint(const Byte* at, const Byte* end, CodedPoint* point) {
  const auto readField = [&at](Byte tag, std::uint64_t* value) {
    if (*at == tag) at = readVarint(at + 1, value);
    return at != nullptr;
  };
  return readField(kPointX, &point->x) && readField(kPointY, &point->y) &&
         readField(kPointZ, &point->z) && readField(kPointIntensity, &point->intensity) &&
         readField(kPointRing, &point->ring) && readField(kPointTimeOffset, &point->timeOffset) &&
         at == end && ((point->intensity | point->ring | point->timeOffset) >> 32) == 0;
}

/// The same for a point near the end of the payload.
[[gnu::noinline]] bool readLastPoint(const Byte* at, const Byte* end, CodedPoint* point) {
  std::array<Byte, kPointReach> copy{};
  const auto size = static_cast<std::size_t>(end - at);
  std::memcpy(copy.data(), at, size);
  return readPoint(copy.data(), copy.data() + size, point);
}

/// Sets the fields of a new point, in its place: a copy of one made elsewhere takes twice the time.
void convert(const CodedPoint& coded, const SampleScale& scale, std::int64_t frameTimeUs,
             PointIRT* point) {
  point->x = scale.toFloat(unzigzag(coded.x));
  point->y = scale.toFloat(unzigzag(coded.y));
  point->z = scale.toFloat(unzigzag(coded.z));
  point->intensity = static_cast<float>(coded.intensity & 0xFFU);
  const std::int32_t offset = unzigzag32(static_cast<std::uint32_t>(coded.timeOffset));
  point->timestamp = toSeconds(addSaturated(frameTimeUs, offset));
  point->ring = static_cast<std::uint16_t>(coded.ring & 0xFFFFU);
}

/// @param payloadEnd  Up to which bytes may be looked at.
bool readPoints(const Survey& message, const Byte* payloadEnd, std::vector<PointIRT>* points) {
  const SampleScale scale(message.header.scale);
  points->reserve(message.points);
  const Byte* at = message.pointFields.at();
  while (at != message.pointFields.end()) {
    const Byte* const begin = at + 2;
    const Byte* const end = begin + at[1];
    // Behind a point comes another one, or the next message: no tag of a point's own field.
    static_assert(kMsgPoint != kPointX && kMsgPoint != kPointY && kMsgPoint != kPointZ &&
                  kMsgPoint != kPointIntensity && kMsgPoint != kPointRing &&
                  kMsgPoint != kPointTimeOffset);
    static_assert(kArrayMsgs != kPointX && kArrayMsgs != kPointY && kArrayMsgs != kPointZ &&
                  kArrayMsgs != kPointIntensity && kArrayMsgs != kPointRing &&
                  kArrayMsgs != kPointTimeOffset);
    CodedPoint point;
    const bool isInside = payloadEnd - begin >= static_cast<std::ptrdiff_t>(kPointReach);
    if (!(isInside ? readPoint(begin, end, &point) : readLastPoint(begin, end, &point))) {
      return false;
    }
    convert(point, scale, message.header.timestamp, &points->emplace_back());
    at = end;
  }
  return true;
}

std::shared_ptr<PointCloudFrame> readFrame(Input message, const Byte* payloadEnd) {
  Survey result;
  auto cloud = std::make_shared<PointCloud>();
  if (!survey(message, &result) || !readPoints(result, payloadEnd, &cloud->points)) return nullptr;
  cloud->width = static_cast<std::uint32_t>(cloud->points.size());

  auto frame = std::make_shared<PointCloudFrame>();
  frame->seq = result.header.seq;
  frame->collectTimestamp = static_cast<std::uint64_t>(result.header.timestamp);
  frame->cloud = std::make_shared<PointCloudMsg>();
  frame->cloud->time = toSeconds(result.header.timestamp);
  frame->cloud->seq = result.header.seq;
  frame->cloud->cloud = std::move(cloud);
  return frame;
}

}  // namespace

std::optional<std::vector<std::shared_ptr<PointCloudFrame>>> decodeLidarPayload(
    std::string_view payload) {
  if (payload.size() > std::numeric_limits<std::int32_t>::max()) return std::nullopt;
  const auto* const begin = reinterpret_cast<const Byte*>(payload.data());
  Input input(begin, begin + payload.size());
  std::vector<std::shared_ptr<PointCloudFrame>> frames;
  while (!input.isEmpty()) {
    Input message(nullptr, nullptr);
    if (!input.take(kArrayMsgs) || !input.takeSized(&message)) return std::nullopt;
    auto frame = readFrame(message, begin + payload.size());
    if (frame == nullptr) return std::nullopt;
    frames.push_back(std::move(frame));
  }
  return frames;
}

}  // namespace morva
