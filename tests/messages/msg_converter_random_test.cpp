// Random frames through the stored form and back: values are coded with a scale, serialized, parsed
// and converted, and must come back within half a quantum of what went in.

#include <array>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "messages/msg_converter.h"

namespace morva {
namespace {

namespace pb = protix::kbag_msgs;

constexpr int kCasesOfEachKind = 200;  // eight kinds: 1600 cases, of 0 to 8 samples

class RandomFrames : public testing::Test {
 protected:
  template <typename Integer>
  Integer any(Integer low = std::numeric_limits<Integer>::min(),
              Integer high = std::numeric_limits<Integer>::max()) {
    return std::uniform_int_distribution<Integer>(low, high)(random_);
  }

  std::string anyBytes(std::size_t maxSize) {
    std::string bytes(any<std::size_t>(0, maxSize), '\0');
    for (char& byte : bytes) byte = static_cast<char>(any<int>(0, 255));
    return bytes;
  }

  /// A physical value and its coded form under the current scale.
  struct Value {
    double value;
    std::int64_t coded;
  };

  Value anyValue() {
    const double value = std::uniform_real_distribution<double>(-1000.0, 1000.0)(random_);
    return {value, static_cast<std::int64_t>(std::llround(value / quantum_))};
  }

  /// Fills a header with random fields and takes its scale for anyValue().
  void fill(pb::Header* header) {
    static constexpr std::int64_t kScales[] = {1, 10, 1000, 100'000, 1'000'000'000, 0, -1, -3};
    const std::int64_t scale = kScales[any<std::size_t>(0, std::size(kScales) - 1)];
    quantum_ = scale > 0   ? 1.0 / static_cast<double>(scale)
               : scale < 0 ? static_cast<double>(scale)
                           : 1.0;
    header->set_timestamp(any<std::int64_t>());
    header->set_scale(scale);
    header->set_seq(any<std::uint32_t>());
  }

  /// Half a quantum, and the rounding of double arithmetic.
  void expectNear(double actual, const Value& expected) const {
    EXPECT_NEAR(actual, expected.value, std::abs(quantum_) / 2 + std::abs(expected.value) * 1e-15);
  }
  /// The same, and half a unit in the last place of single precision.
  void expectNear(float actual, const Value& expected) const {
    EXPECT_NEAR(actual, expected.value,
                std::abs(quantum_) / 2 + (std::abs(expected.value) + std::abs(quantum_)) * 6.0e-8);
  }

  template <typename Frame>
  static void expectHeader(const Frame& frame, const pb::Header& header) {
    EXPECT_EQ(frame.seq, header.seq());
    EXPECT_EQ(static_cast<std::int64_t>(frame.collectTimestamp), header.timestamp());
  }

  /// Runs the cases: `fillSample(msg)` makes one sample's message and returns what must come back,
  /// `check(frame, expected)` compares.
  template <typename Array, typename Convert, typename FillSample, typename Check>
  void run(Convert convert, FillSample fillSample, Check check) {
    for (int number = 0; number < kCasesOfEachKind && !HasFailure(); ++number) {
      SCOPED_TRACE(number);
      Array array;
      std::vector<decltype(fillSample(array.add_msgs()))> expected;
      std::vector<double> quanta;
      array.clear_msgs();
      const int samples = any<int>(0, 8);
      for (int i = 0; i < samples; ++i) {
        auto* const msg = array.add_msgs();
        fill(msg->mutable_header());
        expected.push_back(fillSample(msg));
        quanta.push_back(quantum_);
      }
      const auto frames = convert(array.SerializeAsString());
      ASSERT_EQ(frames.size(), expected.size());
      for (std::size_t i = 0; i < frames.size(); ++i) {
        quantum_ = quanta[i];
        expectHeader(*frames[i], array.msgs(static_cast<int>(i)).header());
        check(*frames[i], expected[i]);
      }
    }
  }

  std::mt19937_64 random_{20260131};
  double quantum_ = 1.0;
};

TEST_F(RandomFrames, ImuComesBackWithinHalfAQuantum) {
  using Values = std::array<Value, 6>;
  run<pb::ImuMsgArray>(
      &MsgConverter::fromImuMsgArray,
      [this](pb::ImuMsg* msg) {
        const Values v{anyValue(), anyValue(), anyValue(), anyValue(), anyValue(), anyValue()};
        msg->set_accel_x(v[0].coded);
        msg->set_accel_y(v[1].coded);
        msg->set_accel_z(v[2].coded);
        msg->set_gyro_x(v[3].coded);
        msg->set_gyro_y(v[4].coded);
        msg->set_gyro_z(v[5].coded);
        return v;
      },
      [this](const ImuFrame& frame, const Values& v) {
        expectNear(frame.imu->accelX, v[0]);
        expectNear(frame.imu->accelY, v[1]);
        expectNear(frame.imu->accelZ, v[2]);
        expectNear(frame.imu->gyroX, v[3]);
        expectNear(frame.imu->gyroY, v[4]);
        expectNear(frame.imu->gyroZ, v[5]);
      });
}

TEST_F(RandomFrames, MagneticComesBackWithinHalfAQuantum) {
  struct Expected {
    std::array<Value, 7> v;
    std::uint32_t state;
  };
  run<pb::MagneticMsgArray>(
      &MsgConverter::fromMagneticMsgArray,
      [this](pb::MagneticMsg* msg) {
        const Expected expected{
            {anyValue(), anyValue(), anyValue(), anyValue(), anyValue(), anyValue(), anyValue()},
            any<std::uint32_t>()};
        msg->set_mag_x(expected.v[0].coded);
        msg->set_mag_y(expected.v[1].coded);
        msg->set_mag_z(expected.v[2].coded);
        msg->set_calib_mag_x(expected.v[3].coded);
        msg->set_calib_mag_y(expected.v[4].coded);
        msg->set_calib_mag_z(expected.v[5].coded);
        msg->set_declination(expected.v[6].coded);
        msg->set_state(expected.state);
        return expected;
      },
      [this](const MagneticFrame& frame, const Expected& expected) {
        expectNear(frame.magX, expected.v[0]);
        expectNear(frame.magY, expected.v[1]);
        expectNear(frame.magZ, expected.v[2]);
        expectNear(frame.calibMagX, expected.v[3]);
        expectNear(frame.calibMagY, expected.v[4]);
        expectNear(frame.calibMagZ, expected.v[5]);
        expectNear(frame.declination, expected.v[6]);
        EXPECT_EQ(frame.state, expected.state);
      });
}

TEST_F(RandomFrames, MotorComesBackWithinHalfAQuantum) {
  using Values = std::array<Value, 5>;
  run<pb::OdometryMsgArray>(
      &MsgConverter::fromMotorMsgArray,
      [this](pb::OdometryMsg* msg) {
        const Values v{anyValue(), anyValue(), anyValue(), anyValue(), anyValue()};
        msg->set_qx(v[0].coded);
        msg->set_qy(v[1].coded);
        msg->set_qz(v[2].coded);
        msg->set_qw(v[3].coded);
        msg->set_angle(v[4].coded);
        return v;
      },
      [this](const MotorFrame& frame, const Values& v) {
        expectNear(frame.motor->qx, v[0]);
        expectNear(frame.motor->qy, v[1]);
        expectNear(frame.motor->qz, v[2]);
        expectNear(frame.motor->qw, v[3]);
        expectNear(frame.angle, v[4]);
      });
}

TEST_F(RandomFrames, GnssComesBackWithinHalfAQuantum) {
  struct Expected {
    std::array<Value, 8> v;
    pb::GnssMsg msg;
  };
  run<pb::GnssMsgArray>(
      &MsgConverter::fromGnssMsgArray,
      [this](pb::GnssMsg* msg) {
        const std::array<Value, 8> v{anyValue(), anyValue(), anyValue(), anyValue(),
                                     anyValue(), anyValue(), anyValue(), anyValue()};
        msg->set_status(any<std::int32_t>());
        msg->set_service(any<std::uint32_t>());
        msg->set_frame(any<std::uint32_t>());
        msg->set_satellite_num(any<std::uint32_t>());
        msg->set_utc_time(any<std::int64_t>());
        msg->set_latitude(std::uniform_real_distribution<double>(-90.0, 90.0)(random_));
        msg->set_longitude(std::uniform_real_distribution<double>(-180.0, 180.0)(random_));
        msg->set_altitude(v[0].coded);
        msg->set_undulation(v[1].coded);
        msg->set_pdop(v[2].coded);
        msg->set_hdop(v[3].coded);
        msg->set_vdop(v[4].coded);
        msg->set_lat_sigma(v[5].coded);
        msg->set_lon_sigma(v[6].coded);
        msg->set_hgt_sigma(v[7].coded);
        return Expected{v, *msg};
      },
      [this](const GnssFrame& frame, const Expected& expected) {
        EXPECT_EQ(static_cast<std::int32_t>(frame.rawStatus), expected.msg.status());
        EXPECT_EQ(frame.service, expected.msg.service());
        EXPECT_EQ(frame.utcTime, expected.msg.utc_time());
        EXPECT_EQ(frame.gnss->frame, expected.msg.frame());
        EXPECT_EQ(frame.gnss->satelliteNum, expected.msg.satellite_num());
        EXPECT_EQ(frame.gnss->latitude, expected.msg.latitude());
        EXPECT_EQ(frame.gnss->longitude, expected.msg.longitude());
        expectNear(frame.gnss->altitude, expected.v[0]);
        expectNear(frame.gnss->undulation, expected.v[1]);
        expectNear(frame.gnss->pdop, expected.v[2]);
        expectNear(frame.gnss->hdop, expected.v[3]);
        expectNear(frame.gnss->vdop, expected.v[4]);
        expectNear(frame.gnss->latSigma, expected.v[5]);
        expectNear(frame.gnss->lonSigma, expected.v[6]);
        expectNear(frame.gnss->hgtSigma, expected.v[7]);
      });
}

TEST_F(RandomFrames, PointsComeBackWithinHalfAQuantum) {
  struct Point {
    std::array<Value, 3> v;
    pb::LidarPoint msg;
  };
  struct Expected {
    std::int64_t time;
    std::vector<Point> points;
  };
  run<pb::LidarPointMsgArray>(
      &MsgConverter::fromPointCloudMsgArray,
      [this](pb::LidarPointMsg* msg) {
        // Times of today, where a double of seconds still resolves a microsecond.
        msg->mutable_header()->set_timestamp(
            any<std::int64_t>(1'600'000'000'000'000, 1'800'000'000'000'000));
        Expected expected{msg->header().timestamp(), {}};
        const int points = any<int>(0, 50);
        for (int i = 0; i < points; ++i) {
          const std::array<Value, 3> v{anyValue(), anyValue(), anyValue()};
          pb::LidarPoint* const point = msg->add_points();
          point->set_x(v[0].coded);
          point->set_y(v[1].coded);
          point->set_z(v[2].coded);
          point->set_intensity(any<std::uint32_t>());
          point->set_ring(any<std::uint32_t>());
          point->set_time_offset(any<std::int32_t>());
          expected.points.push_back({v, *point});
        }
        return expected;
      },
      [this](const PointCloudFrame& frame, const Expected& expected) {
        const PointCloud& cloud = *frame.cloud->cloud;
        ASSERT_EQ(cloud.points.size(), expected.points.size());
        EXPECT_EQ(cloud.width, expected.points.size());
        EXPECT_EQ(cloud.height, 1U);
        for (std::size_t i = 0; i < cloud.points.size(); ++i) {
          const PointIRT& point = cloud.points[i];
          const Point& truth = expected.points[i];
          expectNear(point.x, truth.v[0]);
          expectNear(point.y, truth.v[1]);
          expectNear(point.z, truth.v[2]);
          EXPECT_EQ(point.intensity, static_cast<float>(truth.msg.intensity() % 256));
          EXPECT_EQ(point.ring, truth.msg.ring() % 65536);
          EXPECT_NEAR(point.timestamp * 1e6,
                      static_cast<double>(expected.time + truth.msg.time_offset()), 0.5);
        }
      });
}

TEST_F(RandomFrames, PicturesComeBackByteForByte) {
  run<pb::ImageMsgArray>(
      &MsgConverter::fromImageMsgArray,
      [this](pb::ImageMsg* msg) {
        msg->set_width(any<std::uint32_t>());
        msg->set_height(any<std::uint32_t>());
        msg->set_image_type(any<std::uint32_t>());
        msg->set_data(anyBytes(2000));
        return *msg;
      },
      [](const ImageFrame& frame, const pb::ImageMsg& expected) {
        EXPECT_EQ(frame.width, expected.width());
        EXPECT_EQ(frame.height, expected.height());
        EXPECT_EQ(frame.imageType, expected.image_type());
        EXPECT_EQ(frame.data, expected.data());
      });
}

TEST_F(RandomFrames, FilesComeBackByteForByte) {
  struct Expected {
    std::string name;
    std::string content;
  };
  run<pb::FileMsgArray>(
      &MsgConverter::fromFileMsgArray,
      [this](pb::FileMsg* msg) {
        Expected expected;
        const int letters = any<int>(0, 12);
        for (int i = 0; i < letters; ++i) expected.name += static_cast<char>(any<int>('0', 'z'));
        msg->set_name(any<int>(0, 1) == 0 ? expected.name : "some/folder/" + expected.name);
        const int member = any<int>(0, 2);
        if (member > 0) expected.content = anyBytes(500);
        if (member == 1) msg->set_plain(expected.content);
        if (member == 2) msg->set_scrambled(expected.content);
        return expected;
      },
      [](const FileFrame& frame, const Expected& expected) {
        EXPECT_EQ(frame.name, expected.name);
        EXPECT_EQ(frame.content, expected.content);
      });
}

TEST_F(RandomFrames, RawDataComesBackByteForByte) {
  run<pb::LogMsgArray>(
      &MsgConverter::fromRawDataMsgArray,
      [this](pb::LogMsg* msg) {
        msg->set_data(anyBytes(2000));
        return msg->data();
      },
      [](const RawDataFrame& frame, const std::string& data) { EXPECT_EQ(frame.data, data); });
}

/// Whatever the bytes say, the result is some list, and no arithmetic is undefined.
TEST_F(RandomFrames, DamagedPayloadsGiveSomeResult) {
  pb::LidarPointMsgArray array;
  pb::LidarPointMsg* const msg = array.add_msgs();
  msg->mutable_header()->set_timestamp(1'700'000'000'000'000);
  msg->mutable_header()->set_scale(1000);
  for (int i = 0; i < 20; ++i) {
    pb::LidarPoint* const point = msg->add_points();
    point->set_x(any<std::int64_t>());
    point->set_time_offset(any<std::int32_t>());
  }
  const std::string good = array.SerializeAsString();
  std::size_t parsed = 0;
  for (int number = 0; number < 1000; ++number) {
    std::string bad = good;
    bad[any<std::size_t>(0, bad.size() - 1)] ^= static_cast<char>(any<int>(1, 255));
    parsed += MsgConverter::fromImuMsgArray(bad).size();
    parsed += MsgConverter::fromMagneticMsgArray(bad).size();
    parsed += MsgConverter::fromMotorMsgArray(bad).size();
    parsed += MsgConverter::fromGnssMsgArray(bad).size();
    parsed += MsgConverter::fromPointCloudMsgArray(bad).size();
    parsed += MsgConverter::fromImageMsgArray(bad).size();
    parsed += MsgConverter::fromFileMsgArray(bad).size();
    parsed += MsgConverter::fromRawDataMsgArray(bad).size();
  }
  EXPECT_GT(parsed, 0U);
}

}  // namespace
}  // namespace morva
