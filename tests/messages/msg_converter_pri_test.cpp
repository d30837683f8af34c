#include "messages/msg_converter_pri.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace morva {
namespace {

namespace pb = protix::kbag_msgs;

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

template <typename Msg>
Msg withHeader(std::int64_t timestampUs, std::int64_t scale, std::uint32_t seq) {
  Msg msg;
  msg.mutable_header()->set_timestamp(timestampUs);
  msg.mutable_header()->set_scale(scale);
  msg.mutable_header()->set_seq(seq);
  return msg;
}

double scaledDeclination(std::int64_t coded, std::int64_t scale) {
  auto msg = withHeader<pb::MagneticMsg>(0, scale, 0);
  msg.set_declination(coded);
  return MsgConverterPri::fromPBMsg(msg)->declination;
}

float scaledAccel(std::int64_t coded, std::int64_t scale) {
  auto msg = withHeader<pb::ImuMsg>(0, scale, 0);
  msg.set_accel_x(coded);
  return MsgConverterPri::fromPBMsg(msg)->imu->accelX;
}

TEST(ScaleRule, PositiveScaleDivides) {
  EXPECT_EQ(scaledDeclination(1500, 1000), 1.5);
  EXPECT_EQ(scaledAccel(1500, 1000), 1.5F);
  EXPECT_EQ(scaledAccel(-1500, 1000), -1.5F);
}

TEST(ScaleRule, ScaleZeroLeavesTheValue) {
  EXPECT_EQ(scaledDeclination(1500, 0), 1500.0);
  EXPECT_EQ(scaledAccel(1500, 0), 1500.0F);
}

TEST(ScaleRule, NegativeScaleMultiplies) {
  EXPECT_EQ(scaledDeclination(1500, -2), -3000.0);
  EXPECT_EQ(scaledAccel(1500, -2), -3000.0F);
  EXPECT_EQ(scaledAccel(-7, -1), 7.0F);
}

TEST(ScaleRule, MultipliesByTheReciprocalInDoublePrecision) {
  // 3 * (1.0 / 10) is not 3 / 10.0: the factor comes first.
  EXPECT_EQ(scaledDeclination(3, 10), 3 * (1.0 / 10));
  EXPECT_NE(scaledDeclination(3, 10), 3 / 10.0);
  // 16777217 needs 25 bits: single precision before the product would lose the last of them.
  EXPECT_EQ(scaledAccel(16777217, 1 << 24), static_cast<float>(16777217.0 * (1.0 / (1 << 24))));
  EXPECT_EQ(scaledDeclination(16777217, 0), 16777217.0);
}

TEST(ScaleRule, ExtremeIntegersStayFinite) {
  const double two63 = std::ldexp(1.0, 63);
  EXPECT_EQ(scaledDeclination(kMin, kMin), two63 * two63);
  EXPECT_EQ(scaledAccel(kMin, kMin), std::ldexp(1.0F, 126));
  EXPECT_EQ(scaledAccel(kMax, kMin), -std::ldexp(1.0F, 126));
  EXPECT_EQ(scaledDeclination(kMax, kMax), 1.0);
  EXPECT_EQ(scaledDeclination(kMin, 1), -two63);
  EXPECT_EQ(scaledDeclination(1, kMax), std::ldexp(1.0, -63));
}

TEST(ImuConversion, ScalesSixValuesInOrder) {
  auto msg = withHeader<pb::ImuMsg>(1'500'000, 100, 7);
  msg.set_accel_x(100);
  msg.set_accel_y(-200);
  msg.set_accel_z(981);
  msg.set_gyro_x(50);
  msg.set_gyro_y(25);
  msg.set_gyro_z(-75);
  const auto frame = MsgConverterPri::fromPBMsg(msg);
  EXPECT_EQ(frame->seq, 7U);
  EXPECT_EQ(frame->collectTimestamp, 1'500'000U);
  EXPECT_EQ(frame->imu->time, 1.5);
  EXPECT_EQ(frame->imu->accelX, 1.0F);
  EXPECT_EQ(frame->imu->accelY, -2.0F);
  EXPECT_EQ(frame->imu->accelZ, 9.81F);
  EXPECT_EQ(frame->imu->gyroX, 0.5F);
  EXPECT_EQ(frame->imu->gyroY, 0.25F);
  EXPECT_EQ(frame->imu->gyroZ, -0.75F);
}

TEST(ImuConversion, MissingHeaderReadsAsZeros) {
  pb::ImuMsg msg;
  msg.set_accel_x(12);
  const auto frame = MsgConverterPri::fromPBMsg(msg);
  EXPECT_EQ(frame->seq, 0U);
  EXPECT_EQ(frame->collectTimestamp, 0U);
  EXPECT_EQ(frame->imu->time, 0.0);
  EXPECT_EQ(frame->imu->accelX, 12.0F);
}

TEST(ImuConversion, NegativeTimestampKeepsItsBits) {
  const auto frame = MsgConverterPri::fromPBMsg(withHeader<pb::ImuMsg>(-1'000'000, 1, 0));
  EXPECT_EQ(static_cast<std::int64_t>(frame->collectTimestamp), -1'000'000);
  EXPECT_EQ(frame->imu->time, -1.0);
}

TEST(MagneticConversion, ScalesValuesAndDeclinationAndCopiesState) {
  auto msg = withHeader<pb::MagneticMsg>(2'000'001, 10, 8);
  msg.set_mag_x(11);
  msg.set_mag_y(12);
  msg.set_mag_z(13);
  msg.set_calib_mag_x(14);
  msg.set_calib_mag_y(15);
  msg.set_calib_mag_z(16);
  msg.set_declination(5);
  msg.set_state(4294967295U);
  const auto frame = MsgConverterPri::fromPBMsg(msg);
  EXPECT_EQ(frame->seq, 8U);
  EXPECT_EQ(frame->collectTimestamp, 2'000'001U);
  EXPECT_EQ(frame->magX, 1.1F);
  EXPECT_EQ(frame->magY, 1.2F);
  EXPECT_EQ(frame->magZ, 1.3F);
  EXPECT_EQ(frame->calibMagX, 1.4F);
  EXPECT_EQ(frame->calibMagY, 1.5F);
  EXPECT_EQ(frame->calibMagZ, 1.6F);
  EXPECT_EQ(frame->declination, 0.5);
  EXPECT_EQ(frame->state, 4294967295U);
}

TEST(MotorConversion, ReordersTheQuaternionAndReturnsTheAngle) {
  auto msg = withHeader<pb::OdometryMsg>(3'000'000, 4, 9);
  msg.set_qw(4);
  msg.set_qx(1);
  msg.set_qy(2);
  msg.set_qz(3);
  msg.set_angle(-6);
  double angle = 0.0;
  const auto frame = MsgConverterPri::fromPBMsg(msg, &angle);
  EXPECT_EQ(frame->seq, 9U);
  EXPECT_EQ(frame->collectTimestamp, 3'000'000U);
  EXPECT_EQ(frame->motor->time, 3.0);
  EXPECT_EQ(frame->motor->reserved, 0.0);
  EXPECT_EQ(frame->motor->qx, 0.25F);
  EXPECT_EQ(frame->motor->qy, 0.5F);
  EXPECT_EQ(frame->motor->qz, 0.75F);
  EXPECT_EQ(frame->motor->qw, 1.0F);
  EXPECT_EQ(angle, -1.5);
}

TEST(MotorConversion, NullAngleIsIgnored) {
  auto msg = withHeader<pb::OdometryMsg>(0, 2, 0);
  msg.set_angle(3);
  msg.set_qw(2);
  EXPECT_EQ(MsgConverterPri::fromPBMsg(msg, nullptr)->motor->qw, 1.0F);
}

TEST(GnssConversion, CopiesWordsAndScalesEightValues) {
  auto msg = withHeader<pb::GnssMsg>(4'000'000, 1000, 10);
  msg.set_status(2);
  msg.set_service(3);
  msg.set_frame(4);
  msg.set_satellite_num(5);
  msg.set_utc_time(-6);
  msg.set_latitude(48.123456789012);
  msg.set_longitude(-11.987654321098);
  msg.set_altitude(512345);
  msg.set_undulation(47500);
  msg.set_pdop(1250);
  msg.set_hdop(750);
  msg.set_vdop(1000);
  msg.set_lat_sigma(10);
  msg.set_lon_sigma(20);
  msg.set_hgt_sigma(-30);
  const auto frame = MsgConverterPri::fromPBMsg(msg);
  EXPECT_EQ(frame->seq, 10U);
  EXPECT_EQ(frame->collectTimestamp, 4'000'000U);
  EXPECT_EQ(frame->utcTime, -6);
  EXPECT_EQ(frame->service, 3U);
  EXPECT_EQ(frame->rawStatus, 2U);
  EXPECT_EQ(frame->gnss->time, 4.0);
  EXPECT_EQ(frame->gnss->satelliteNum, 5U);
  EXPECT_EQ(frame->gnss->latitude, 48.123456789012);
  EXPECT_EQ(frame->gnss->longitude, -11.987654321098);
  EXPECT_EQ(frame->gnss->altitude, 512345 * (1.0 / 1000));
  EXPECT_EQ(frame->gnss->undulation, 47.5);
  EXPECT_EQ(frame->gnss->pdop, 1.25);
  EXPECT_EQ(frame->gnss->hdop, 0.75);
  EXPECT_EQ(frame->gnss->vdop, 1.0);
  EXPECT_EQ(frame->gnss->latSigma, 0.01);
  EXPECT_EQ(frame->gnss->lonSigma, 0.02);
  EXPECT_EQ(frame->gnss->hgtSigma, -0.03);
  EXPECT_EQ(frame->gnss->frame, 4U);
  EXPECT_EQ(frame->gnss->status, 3U);
}

TEST(GnssConversion, MapsTheRawStatus) {
  const auto mapped = [](std::int32_t rawStatus) {
    pb::GnssMsg msg;
    msg.set_status(rawStatus);
    const auto frame = MsgConverterPri::fromPBMsg(msg);
    EXPECT_EQ(static_cast<std::int32_t>(frame->rawStatus), rawStatus);
    return frame->gnss->status;
  };
  EXPECT_EQ(mapped(0), 999U);
  EXPECT_EQ(mapped(1), 3U);
  EXPECT_EQ(mapped(2), 3U);
  EXPECT_EQ(mapped(3), 4U);
  EXPECT_EQ(mapped(4), 999U);
  EXPECT_EQ(mapped(5), 999U);
  EXPECT_EQ(mapped(-1), 999U);
  EXPECT_EQ(mapped(std::numeric_limits<std::int32_t>::min()), 999U);
  EXPECT_EQ(mapped(std::numeric_limits<std::int32_t>::max()), 999U);
}

TEST(LidarConversion, FillsEveryFieldOfAPoint) {
  auto msg = withHeader<pb::LidarPointMsg>(5'000'000, 1000, 11);
  pb::LidarPoint* const point = msg.add_points();
  point->set_x(1500);
  point->set_y(-2500);
  point->set_z(125);
  point->set_intensity(200);
  point->set_ring(31);
  point->set_time_offset(250);
  msg.add_points();
  const auto frame = MsgConverterPri::fromPBMsg(msg);
  EXPECT_EQ(frame->seq, 11U);
  EXPECT_EQ(frame->collectTimestamp, 5'000'000U);
  EXPECT_EQ(frame->cloud->time, 5.0);
  EXPECT_EQ(frame->cloud->seq, 11U);
  const PointCloud& cloud = *frame->cloud->cloud;
  ASSERT_EQ(cloud.points.size(), 2U);
  EXPECT_EQ(cloud.width, 2U);
  EXPECT_EQ(cloud.height, 1U);
  EXPECT_EQ(cloud.points[0].x, 1.5F);
  EXPECT_EQ(cloud.points[0].y, -2.5F);
  EXPECT_EQ(cloud.points[0].z, 0.125F);
  EXPECT_EQ(cloud.points[0].normal_x, 0.0F);
  EXPECT_EQ(cloud.points[0].normal_y, 0.0F);
  EXPECT_EQ(cloud.points[0].normal_z, 0.0F);
  EXPECT_EQ(cloud.points[0].intensity, 200.0F);
  EXPECT_EQ(cloud.points[0].ring, 31U);
  EXPECT_EQ(cloud.points[0].timestamp, 5.00025);
  EXPECT_EQ(cloud.points[1].timestamp, 5.0);
}

TEST(LidarConversion, KeepsLowBitsOfIntensityAndRing) {
  pb::LidarPointMsg msg;
  msg.add_points()->set_intensity(300);
  msg.add_points()->set_intensity(0xFFFFFFFFU);
  msg.mutable_points(0)->set_ring(0x12345U);
  msg.mutable_points(1)->set_ring(0xFFFFFFFFU);
  const auto frame = MsgConverterPri::fromPBMsg(msg);
  const auto& points = frame->cloud->cloud->points;
  EXPECT_EQ(points[0].intensity, 44.0F);
  EXPECT_EQ(points[0].ring, 0x2345U);
  EXPECT_EQ(points[1].intensity, 255.0F);
  EXPECT_EQ(points[1].ring, 0xFFFFU);
}

TEST(LidarConversion, NegativeTimeOffsetGoesBack) {
  auto msg = withHeader<pb::LidarPointMsg>(1'000'000, 1, 0);
  msg.add_points()->set_time_offset(-500);
  EXPECT_EQ(MsgConverterPri::fromPBMsg(msg)->cloud->cloud->points[0].timestamp, 0.9995);
}

TEST(LidarConversion, PointTimeSaturates) {
  auto late = withHeader<pb::LidarPointMsg>(kMax, 1, 0);
  late.add_points()->set_time_offset(std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(MsgConverterPri::fromPBMsg(late)->cloud->cloud->points[0].timestamp,
            static_cast<double>(kMax) / 1e6);
  auto early = withHeader<pb::LidarPointMsg>(kMin, 1, 0);
  early.add_points()->set_time_offset(std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(MsgConverterPri::fromPBMsg(early)->cloud->cloud->points[0].timestamp,
            static_cast<double>(kMin) / 1e6);
}

TEST(LidarConversion, MessageWithoutPointsGivesAnEmptyCloud) {
  const auto frame = MsgConverterPri::fromPBMsg(pb::LidarPointMsg());
  ASSERT_NE(frame->cloud->cloud, nullptr);
  EXPECT_TRUE(frame->cloud->cloud->points.empty());
  EXPECT_EQ(frame->cloud->cloud->width, 0U);
  EXPECT_EQ(frame->cloud->cloud->height, 1U);
}

TEST(PointLayout, IsThatOfAlignedFloatBlocks) {
  const PointIRT point;
  const auto offset = [&point](const void* field) {
    return static_cast<const char*>(field) -
           static_cast<const char*>(static_cast<const void*>(&point));
  };
  EXPECT_EQ(alignof(PointIRT), 16U);
  EXPECT_EQ(sizeof(PointIRT), 64U);
  EXPECT_EQ(offset(&point.x), 0);
  EXPECT_EQ(offset(&point.normal_x), 16);
  EXPECT_EQ(offset(&point.intensity), 32);
  EXPECT_EQ(offset(&point.timestamp), 40);
  EXPECT_EQ(offset(&point.ring), 48);
}

TEST(ImageConversion, CopiesWordsAndBytes) {
  auto msg = withHeader<pb::ImageMsg>(6, 1000, 12);
  msg.set_width(4294967295U);
  msg.set_height(3000);
  msg.set_image_type(2);
  msg.set_data(std::string("\0\xFF\0", 3));
  const auto frame = MsgConverterPri::fromPBMsg(msg);
  EXPECT_EQ(frame->seq, 12U);
  EXPECT_EQ(frame->collectTimestamp, 6U);
  EXPECT_EQ(frame->width, 4294967295U);
  EXPECT_EQ(frame->height, 3000U);
  EXPECT_EQ(frame->imageType, 2U);
  EXPECT_EQ(frame->data, std::string("\0\xFF\0", 3));
}

std::string frameName(const std::string& carriedName) {
  pb::FileMsg msg;
  msg.set_name(carriedName);
  return MsgConverterPri::fromPBMsg(msg)->name;
}

TEST(FileConversion, TakesTheLastPathComponent) {
  EXPECT_EQ(frameName("a/b/c.yaml"), "c.yaml");
  EXPECT_EQ(frameName("/etc/passwd"), "passwd");
  EXPECT_EQ(frameName("../../x"), "x");
  EXPECT_EQ(frameName("plain name.yaml"), "plain name.yaml");
  EXPECT_EQ(frameName(".."), "..");
  EXPECT_EQ(frameName("a/.."), "..");
  EXPECT_EQ(frameName("a/"), "");
  EXPECT_EQ(frameName(""), "");
}

TEST(FileConversion, TakesTheMemberThatIsSet) {
  auto plain = withHeader<pb::FileMsg>(13, 0, 14);
  plain.set_plain(std::string("a\0b", 3));
  EXPECT_EQ(MsgConverterPri::fromPBMsg(plain)->content, std::string("a\0b", 3));
  EXPECT_EQ(MsgConverterPri::fromPBMsg(plain)->seq, 14U);
  EXPECT_EQ(MsgConverterPri::fromPBMsg(plain)->collectTimestamp, 13U);

  pb::FileMsg scrambled;
  scrambled.set_scrambled("secret");
  EXPECT_EQ(MsgConverterPri::fromPBMsg(scrambled)->content, "secret");

  EXPECT_EQ(MsgConverterPri::fromPBMsg(pb::FileMsg())->content, "");
}

TEST(FileSchema, NumbersTheContentMembersThreeAndFour) {
  EXPECT_EQ(pb::FileMsg::kPlainFieldNumber, 3);
  EXPECT_EQ(pb::FileMsg::kScrambledFieldNumber, 4);
}

TEST(RawDataConversion, CopiesTheBytes) {
  auto msg = withHeader<pb::LogMsg>(15, 0, 16);
  msg.set_data(std::string("$GNGGA\r\n\0", 9));
  const auto frame = MsgConverterPri::fromPBMsg(msg);
  EXPECT_EQ(frame->seq, 16U);
  EXPECT_EQ(frame->collectTimestamp, 15U);
  EXPECT_EQ(frame->data, std::string("$GNGGA\r\n\0", 9));
}

}  // namespace
}  // namespace morva
