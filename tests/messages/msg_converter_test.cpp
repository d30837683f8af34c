#include "messages/msg_converter.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "support/log_capture.h"

namespace morva {
namespace {

namespace pb = protix::kbag_msgs;

/// A converter, its result reduced to what all frames have: their sequence numbers.
struct Kind {
  const char* name;
  std::function<std::vector<std::uint32_t>(const std::string&)> seqs;
};

template <typename Convert>
Kind kind(const char* name, Convert convert) {
  return {name, [convert](const std::string& payload) {
            std::vector<std::uint32_t> seqs;
            for (const auto& frame : convert(payload)) seqs.push_back(frame->seq);
            return seqs;
          }};
}

class EveryConverter : public testing::TestWithParam<Kind> {};

INSTANTIATE_TEST_SUITE_P(Kinds, EveryConverter,
                         testing::Values(kind("Imu", &MsgConverter::fromImuMsgArray),
                                         kind("Magnetic", &MsgConverter::fromMagneticMsgArray),
                                         kind("Motor", &MsgConverter::fromMotorMsgArray),
                                         kind("Gnss", &MsgConverter::fromGnssMsgArray),
                                         kind("PointCloud", &MsgConverter::fromPointCloudMsgArray),
                                         kind("Image", &MsgConverter::fromImageMsgArray),
                                         kind("File", &MsgConverter::fromFileMsgArray),
                                         kind("RawData", &MsgConverter::fromRawDataMsgArray)),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

// A message of each kind begins with the same header, so these bytes are a valid array of every
// kind: field 1 (a sample of 4 bytes): field 1 (a header of 2 bytes): field 3 (sequence number).
std::string sample(char seq) { return {'\x0A', '\x04', '\x0A', '\x02', '\x18', seq}; }

TEST_P(EveryConverter, KeepsTheRecordedOrder) {
  const std::vector<std::uint32_t> expected{5, 3, 4};
  EXPECT_EQ(GetParam().seqs(sample(5) + sample(3) + sample(4)), expected);
}

TEST_P(EveryConverter, PayloadsLeaveNothingToTheNextOne) {
  using Seqs = std::vector<std::uint32_t>;
  const std::string damaged = sample(6) + "\x0A\x7F";
  std::string large;
  for (int i = 0; i < 2000; ++i) large += sample(7);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(GetParam().seqs(sample(5) + sample(3)), (Seqs{5, 3}));
    EXPECT_EQ(GetParam().seqs(std::string("\x0A\x00", 2)), (Seqs{0}));
    EXPECT_EQ(GetParam().seqs(damaged), Seqs());
    EXPECT_EQ(GetParam().seqs(sample(4)), (Seqs{4}));
    EXPECT_EQ(GetParam().seqs(large), Seqs(2000, 7));
  }
}

TEST_P(EveryConverter, EmptyPayloadGivesNoFrames) { EXPECT_TRUE(GetParam().seqs("").empty()); }

TEST_P(EveryConverter, SampleWithoutAnyFieldReadsAsZeros) {
  const std::vector<std::uint32_t> expected{0};
  EXPECT_EQ(GetParam().seqs(std::string("\x0A\x00", 2)), expected);
}

TEST_P(EveryConverter, CorruptPayloadGivesNoFramesAndNoLine) {
  const test::LogCapture log;
  testing::internal::CaptureStderr();
  const std::string good = sample(1) + sample(2);
  EXPECT_TRUE(GetParam().seqs(good + "\x0A").empty());            // a length is missing
  EXPECT_TRUE(GetParam().seqs(good + "\x0A\x7F").empty());        // the length passes the end
  EXPECT_TRUE(GetParam().seqs("\x07 not a message").empty());     // no such wire type
  EXPECT_TRUE(GetParam().seqs(std::string(11, '\xFF')).empty());  // a number without an end
  EXPECT_TRUE(GetParam().seqs("\x0A\xFF\xFF\xFF\xFF\x0F").empty());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(log.lines().empty());
}

TEST_P(EveryConverter, PayloadCutAnywhereNeverGivesMoreThanItHolds) {
  const std::string good = sample(1) + sample(2);
  for (std::size_t length = 0; length < good.size(); ++length) {
    const std::vector<std::uint32_t> seqs = GetParam().seqs(good.substr(0, length));
    EXPECT_EQ(seqs.size(), length == sample(1).size() ? 1U : 0U) << length;
  }
}

TEST_P(EveryConverter, UnknownFieldsAreSkipped) {
  const std::vector<std::uint32_t> expected{9};
  // Field 100 of the array, a number, before the sample.
  EXPECT_EQ(GetParam().seqs("\xA0\x06\x01" + sample(9)), expected);
}

TEST(FileConverter, NameThatIsNotUtf8GivesNoFramesAndPrintsNothing) {
  testing::internal::CaptureStderr();
  // field 1 (a sample of 4 bytes): field 2 (a name of 2 bytes).
  EXPECT_TRUE(MsgConverter::fromFileMsgArray("\x0A\x04\x12\x02\xFF\xFE").empty());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  const auto frames = MsgConverter::fromFileMsgArray("\x0A\x04\x12\x02\xC3\xA9");
  ASSERT_EQ(frames.size(), 1U);
  EXPECT_EQ(frames[0]->name, "\xC3\xA9");
}

TEST(MotorConverter, StoresTheAngleInTheFrame) {
  pb::OdometryMsgArray array;
  for (const int angle : {-5, 15}) {
    pb::OdometryMsg* const msg = array.add_msgs();
    msg->mutable_header()->set_scale(10);
    msg->set_angle(angle);
  }
  const auto frames = MsgConverter::fromMotorMsgArray(array.SerializeAsString());
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(frames[0]->angle, -0.5);
  EXPECT_EQ(frames[1]->angle, 1.5);
}

TEST(GnssConverter, StoresUtcTimeServiceAndRawStatusInTheFrame) {
  pb::GnssMsgArray array;
  pb::GnssMsg* const msg = array.add_msgs();
  msg->set_utc_time(1'700'000'000'123'456);
  msg->set_service(15);
  msg->set_status(-1);
  const auto frames = MsgConverter::fromGnssMsgArray(array.SerializeAsString());
  ASSERT_EQ(frames.size(), 1U);
  EXPECT_EQ(frames[0]->utcTime, 1'700'000'000'123'456);
  EXPECT_EQ(frames[0]->service, 15U);
  EXPECT_EQ(frames[0]->rawStatus, 0xFFFFFFFFU);
  EXPECT_EQ(frames[0]->gnss->status, 999U);
}

TEST(Frames, OutliveThePayload) {
  pb::ImageMsgArray array;
  array.add_msgs()->set_data(std::string(100'000, 'x'));
  auto payload = std::make_unique<std::string>(array.SerializeAsString());
  const auto frames = MsgConverter::fromImageMsgArray(*payload);
  payload.reset();
  ASSERT_EQ(frames.size(), 1U);
  EXPECT_EQ(frames[0]->data, std::string(100'000, 'x'));
}

}  // namespace
}  // namespace morva
