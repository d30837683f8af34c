// The decoder of lidar payloads against protobuf: whatever the bytes, it gives protobuf's result or
// leaves them to protobuf.

#include "messages/lidar_decoder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "messages/msg_converter.h"
#include "messages/msg_converter_pri.h"
#include "support/same_clouds.h"

namespace morva {
namespace {

namespace pb = protix::kbag_msgs;
using Frames = std::vector<std::shared_ptr<PointCloudFrame>>;
using test::isSame;

std::optional<Frames> byProtobuf(std::string_view payload) {
  pb::LidarPointMsgArray array;
  if (!array.ParseFromArray(payload.data(), static_cast<int>(payload.size()))) return std::nullopt;
  Frames frames;
  for (const auto& msg : array.msgs()) frames.push_back(MsgConverterPri::fromPBMsg(msg));
  return frames;
}

/// Of a copy that ends where its memory ends, so that a sanitizer sees what is read beyond it.
std::optional<Frames> byDecoder(std::string_view payload) {
  const auto bytes = std::make_unique_for_overwrite<char[]>(payload.size());
  std::ranges::copy(payload, bytes.get());
  return decodeLidarPayload({bytes.get(), payload.size()});
}

std::string hex(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[static_cast<unsigned char>(byte) & 0xF];
  }
  return text;
}

enum class Verdict { kDecoded, kLeftToProtobuf, kWrong };

Verdict judge(std::string_view payload) {
  const std::optional<Frames> ours = byDecoder(payload);
  if (!ours) return Verdict::kLeftToProtobuf;
  const std::optional<Frames> expected = byProtobuf(payload);
  return expected && isSame(*ours, *expected) ? Verdict::kDecoded : Verdict::kWrong;
}

/// Serialized arrays with values of every magnitude.
class RandomPayloads {
 public:
  explicit RandomPayloads(std::uint64_t seed) : random_(seed) {}

  std::uint64_t below(std::uint64_t limit) { return random_() % limit; }

  /// @param bits  Of the largest coded coordinate.
  std::string next(int maxPoints, unsigned bits) {
    pb::LidarPointMsgArray array;
    const std::uint64_t messages = below(3);
    for (std::uint64_t i = 0; i <= messages; ++i) fill(maxPoints, bits, array.add_msgs());
    return array.SerializeAsString();
  }

 private:
  std::int64_t signedValue(unsigned bits) {
    const auto magnitude = static_cast<std::int64_t>(random_() >> (64 - below(bits) - 1) >> 1);
    return below(2) == 0 ? magnitude : -magnitude;
  }

  void fill(int maxPoints, unsigned bits, pb::LidarPointMsg* msg) {
    if (below(8) != 0) {
      msg->mutable_header()->set_timestamp(static_cast<std::int64_t>(random_() >> 9));
      msg->mutable_header()->set_scale(below(4) == 0 ? signedValue(bits) : 10'000);
      msg->mutable_header()->set_seq(static_cast<std::uint32_t>(random_()));
    }
    const std::uint64_t points = below(static_cast<std::uint64_t>(maxPoints) + 1);
    for (std::uint64_t i = 0; i < points; ++i) {
      pb::LidarPoint* const point = msg->add_points();
      if (below(16) == 0) continue;  // all of it left out
      point->set_x(signedValue(bits));
      point->set_y(signedValue(bits));
      point->set_z(signedValue(bits));
      point->set_intensity(static_cast<std::uint32_t>(random_() >> (32 + below(32))));
      point->set_ring(static_cast<std::uint32_t>(random_() >> (32 + below(32))));
      point->set_time_offset(static_cast<std::int32_t>(signedValue(31)));
    }
  }

  std::mt19937_64 random_;
};

/// Changes some bytes, as damage or a foreign writer might.
class Mutator {
 public:
  explicit Mutator(std::uint64_t seed) : random_(seed) {}

  void change(std::string* bytes) {
    for (std::uint64_t i = 0; i <= below(3); ++i) changeOnce(bytes);
  }

 private:
  std::uint64_t below(std::uint64_t limit) { return random_() % limit; }

  char anyByte() {
    // Tags, lengths and ends of numbers are more telling than any byte.
    constexpr std::string_view kTelling("\x00\x01\x08\x0A\x10\x12\x18\x20\x28\x30\x38\x7F\x80\xFF",
                                        14);
    return below(2) == 0 ? kTelling[below(kTelling.size())] : static_cast<char>(random_());
  }

  void changeOnce(std::string* bytes) {
    if (bytes->empty()) return bytes->push_back(anyByte());
    const std::size_t at = below(bytes->size());
    switch (below(6)) {
      case 0:
        (*bytes)[at] = anyByte();
        break;
      case 1:
        (*bytes)[at] = static_cast<char>((*bytes)[at] ^ (1 << below(8)));
        break;
      case 2:
        bytes->erase(at, 1 + below(3));
        break;
      case 3:
        bytes->insert(at, 1 + below(3), anyByte());
        break;
      case 4:
        bytes->resize(at);
        break;
      default:  // some bytes once more, elsewhere
        bytes->insert(below(bytes->size()), bytes->substr(at, below(16)));
        break;
    }
  }

  std::mt19937_64 random_;
};

/// How many of `count` payloads are decoded; none, if one of them is judged differently.
template <typename MakePayload>
int decodedOf(int count, const MakePayload& makePayload) {
  int decoded = 0;
  for (int i = 0; i < count; ++i) {
    const std::string payload = makePayload();
    const Verdict verdict = judge(payload);
    EXPECT_NE(verdict, Verdict::kWrong) << hex(payload);
    if (verdict == Verdict::kWrong) return 0;
    decoded += verdict == Verdict::kDecoded ? 1 : 0;
  }
  return decoded;
}

TEST(LidarDecoder, DecodesWhatProtobufWrites) {
  RandomPayloads payloads(1);
  for (int i = 0; i < 20'000; ++i) {
    const std::string payload = payloads.next(8, 55);
    ASSERT_EQ(judge(payload), Verdict::kDecoded) << hex(payload);
  }
}

TEST(LidarDecoder, AgreesOnNumbersOfAnyMagnitude) {
  RandomPayloads payloads(2);
  const int decoded = decodedOf(20'000, [&] { return payloads.next(4, 63); });
  EXPECT_GT(decoded, 2000);
  EXPECT_LT(decoded, 18'000);
}

TEST(LidarDecoder, AgreesOnChangedBytes) {
  RandomPayloads payloads(3);
  Mutator mutator(4);
  const int decoded = decodedOf(120'000, [&] {
    std::string payload = payloads.next(3, 24);
    mutator.change(&payload);
    return payload;
  });
  EXPECT_GT(decoded, 5000);
  EXPECT_LT(decoded, 110'000);
}

TEST(LidarDecoder, AgreesOnPayloadsCutAtEveryLength) {
  RandomPayloads payloads(5);
  for (int i = 0; i < 50; ++i) {
    const std::string payload = payloads.next(6, 40);
    for (std::size_t length = 0; length <= payload.size(); ++length) {
      const std::string_view cut = std::string_view(payload).substr(0, length);
      ASSERT_NE(judge(cut), Verdict::kWrong) << hex(cut);
      if (!byProtobuf(cut)) {
        ASSERT_FALSE(byDecoder(cut)) << hex(cut);
      }
    }
  }
}

TEST(LidarDecoder, DecodesEmptyPartsOfEveryKind) {
  using std::string_literals::operator""s;
  for (const std::string& payload : {""s, "\x0A\x00"s, "\x0A\x02\x0A\x00"s, "\x0A\x02\x12\x00"s,
                                     "\x0A\x04\x0A\x00\x12\x00"s, "\x0A\x00\x0A\x00"s}) {
    EXPECT_EQ(judge(payload), Verdict::kDecoded) << hex(payload);
  }
}

/// An array of one message.
std::string arrayOf(const std::string& message) {
  std::string payload = "\x0A";
  std::size_t length = message.size();
  for (; length > 0x7F; length >>= 7) payload += static_cast<char>((length & 0x7F) | 0x80);
  return payload + static_cast<char>(length) + message;
}

struct Form {
  const char* what;
  std::string message;  ///< content of a LidarPointMsg
};

TEST(LidarDecoder, LeavesOtherFormsToProtobuf) {
  using std::string_literals::operator""s;
  const std::string point = "\x12\x06\x08\x02\x10\x04\x18\x06"s;
  const std::string header = "\x0A\x04\x08\x05\x10\x14"s;
  const Form forms[] = {
      {"header behind a point", point + header},
      {"two headers, which protobuf merges", header + "\x0A\x02\x18\x07"s + point},
      {"unknown field of the message", header + "\x1A\x01x"s + point},
      {"unknown field of the header", "\x0A\x04\x08\x05\x20\x01"s + point},
      {"unknown field of a point", header + "\x12\x04\x08\x02\x38\x01"s},
      {"fields of a point out of order", header + "\x12\x04\x10\x02\x08\x04"s},
      {"repeated field of a point", header + "\x12\x04\x08\x02\x08\x04"s},
      {"repeated field of the header", "\x0A\x04\x08\x05\x08\x06"s + point},
      {"point of another wire type", header + "\x12\x05\x0D\x01\x02\x03\x04"s},
      {"header of another wire type", "\x08\x01"s + point},
      {"group", header + "\x13\x08\x02\x14"s},
      {"end of a group", header + "\x14"s},
      {"tag of two bytes", header + "\x92\x00\x02\x08\x02"s},
      {"length of two bytes", header + "\x12\x82\x00\x08\x02"s},
      {"point of more than 127 bytes", header + "\x12\x80\x01"s +
                                           "\x08\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F\x3A\x74"s +
                                           std::string(116, 'x')},
      {"number of nine bytes", header + "\x12\x0A\x08\x80\x80\x80\x80\x80\x80\x80\x80\x01"s},
      {"number of eleven bytes",
       header + "\x12\x0C\x08\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x01"s},
      {"intensity of more than 32 bits", header + "\x12\x06\x20\x81\x80\x80\x80\x10"s},
      {"ring of more than 32 bits", header + "\x12\x06\x28\x81\x80\x80\x80\x10"s},
      {"time offset of more than 32 bits", header + "\x12\x06\x30\x81\x80\x80\x80\x10"s},
      {"sequence number of more than 32 bits", "\x0A\x06\x18\x81\x80\x80\x80\x10"s + point},
      {"time stamp before the epoch",
       "\x0A\x0B\x08\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01"s + point},
      {"point that ends within a number", header + "\x12\x02\x08\x82\x12\x02\x08\x02"s},
      {"point that ends behind a tag", header + "\x12\x01\x08"s},
      {"length beyond the message", header + "\x12\x07\x08\x02"s},
  };
  for (const Form& form : forms) {
    const std::string payload = arrayOf(form.message);
    EXPECT_EQ(judge(payload), Verdict::kLeftToProtobuf) << form.what;
    const Frames frames = MsgConverter::fromPointCloudMsgArray(payload);
    EXPECT_TRUE(isSame(frames, byProtobuf(payload).value_or(Frames()))) << form.what;
  }
}

TEST(LidarDecoder, TakesNumbersWithSuperfluousBytes) {
  using std::string_literals::operator""s;
  EXPECT_EQ(judge("\x0A\x07\x12\x05\x08\x82\x80\x80\x00"s), Verdict::kDecoded);
}

TEST(LidarDecoder, LeavesLengthsOfMoreThanFiveBytesToProtobuf) {
  using std::string_literals::operator""s;
  const std::string five = "\x8A\x80\x80\x80\x00"s;
  const std::string six = "\x8A\x80\x80\x80\x80\x00"s;
  const std::string message = "\x0A\x02\x18\x07\x12\x04\x08\x02\x10\x04"s;
  EXPECT_EQ(judge("\x0A"s + five + message), Verdict::kDecoded);
  EXPECT_EQ(judge("\x0A"s + six + message), Verdict::kLeftToProtobuf);
  EXPECT_EQ(judge("\x0A\x09\x0A\x82\x80\x80\x80\x80\x00\x18\x07"s), Verdict::kLeftToProtobuf);
  EXPECT_TRUE(MsgConverter::fromPointCloudMsgArray("\x0A"s + six + message).empty());
}

TEST(LidarDecoder, TakesTheLargestNumbersOfItsForm) {
  pb::LidarPointMsgArray array;
  pb::LidarPointMsg* const msg = array.add_msgs();
  msg->mutable_header()->set_timestamp((std::int64_t{1} << 56) - 1);
  msg->mutable_header()->set_scale(-3);
  pb::LidarPoint* const point = msg->add_points();
  point->set_x(-(std::int64_t{1} << 54));
  point->set_time_offset(std::numeric_limits<std::int32_t>::max());
  msg->add_points()->set_time_offset(std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(judge(array.SerializeAsString()), Verdict::kDecoded);
}

}  // namespace
}  // namespace morva
