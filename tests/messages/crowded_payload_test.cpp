#include "messages/crowded_payload.h"

#include <cstddef>
#include <string>

#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "support/bombs.h"

namespace morva {
namespace {

namespace pb = protix::kbag_msgs;

std::string repeated(const std::string& bytes, std::size_t count) {
  std::string text;
  text.reserve(bytes.size() * count);
  for (std::size_t i = 0; i < count; ++i) text += bytes;
  return text;
}

using test::emptySamples;
using test::scanOfEmptyPoints;

TEST(CrowdedPayload, FewSamplesAreBelievedOfAnyNumberOfBytes) {
  EXPECT_FALSE(isCrowded("", 0));
  EXPECT_FALSE(isCrowded(emptySamples(1024), 1));
  EXPECT_TRUE(isCrowded(emptySamples(1025), 1));
}

TEST(CrowdedPayload, EachStoredByteIsBelievedToHoldOneSample) {
  EXPECT_FALSE(isCrowded(emptySamples(50'000), 50'000));
  EXPECT_TRUE(isCrowded(emptySamples(50'000), 49'999));
}

TEST(CrowdedPayload, NothingIsCrowdedThatIsNotCompressed) {
  EXPECT_FALSE(isCrowded(emptySamples(100'000), 200'000));
  EXPECT_FALSE(isCrowded(scanOfEmptyPoints(1'200'000), 2'400'005));
}

TEST(CrowdedPayload, PointsAreCountedOverAllScans) {
  EXPECT_FALSE(isCrowded(scanOfEmptyPoints(1'000'000), 100));
  EXPECT_TRUE(isCrowded(scanOfEmptyPoints(1'000'001), 100));
  EXPECT_TRUE(isCrowded(repeated(scanOfEmptyPoints(500'000), 2) + scanOfEmptyPoints(1), 100));
  EXPECT_FALSE(isCrowded(scanOfEmptyPoints(1'200'000), 300'000));
  EXPECT_TRUE(isCrowded(scanOfEmptyPoints(1'200'000), 299'999));
}

TEST(CrowdedPayload, FieldsOfEveryFormCount) {
  const std::string fields[] = {
      std::string("\x18\x00", 2),              // a number
      std::string("\x1D\0\0\0\0", 5),          // four bytes
      std::string("\x19\0\0\0\0\0\0\0\0", 9),  // eight
      "\x1B\x1C",                              // a group
  };
  for (const std::string& field : fields) {
    EXPECT_FALSE(isCrowded(repeated(field, 2000), 2000)) << field.size();
    EXPECT_TRUE(isCrowded(repeated(field, 2000), 1999)) << field.size();
  }
}

TEST(CrowdedPayload, LongContentIsNoCrowd) {
  pb::LogMsgArray array;
  array.add_msgs()->set_data(std::string(900'000, '\x0A'));
  EXPECT_FALSE(isCrowded(array.SerializeAsString(), 100));
}

TEST(CrowdedPayload, CountingEndsWhereNoParserGoesOn) {
  for (const std::string& begin :
       {std::string("\x0E"), std::string("\x0F"), std::string(11, '\xFF')}) {
    EXPECT_FALSE(isCrowded(begin + emptySamples(5000), 10));
  }
  for (const std::string& end :
       {std::string("\x0A"), std::string("\x0A\x01"), std::string("\x19\0", 2),
        std::string("\x1D\0", 2), std::string("\x18\xFF"), std::string("\xFF")}) {
    EXPECT_FALSE(isCrowded(emptySamples(1030) + end, 1030));
    EXPECT_TRUE(isCrowded(emptySamples(1030) + end, 1029));
  }
}

}  // namespace
}  // namespace morva
