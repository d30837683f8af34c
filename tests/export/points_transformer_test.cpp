#include "export/points_transformer.h"

#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace morva {
namespace {

using test::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

using Motors = std::vector<std::shared_ptr<MotorMsg>>;

// The reference works with rotation matrices in double precision, made from axis and angle: no
// quaternion and none of the code's own operations.
using Vec = std::array<double, 3>;
using Mat = std::array<Vec, 3>;

constexpr Mat kIdentity{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};

Vec operator+(const Vec& a, const Vec& b) { return {a[0] + b[0], a[1] + b[1], a[2] + b[2]}; }

Vec operator*(const Mat& m, const Vec& v) {
  Vec result{};
  for (std::size_t row = 0; row < 3; ++row) {
    result[row] = m[row][0] * v[0] + m[row][1] * v[1] + m[row][2] * v[2];
  }
  return result;
}

Mat operator*(const Mat& a, const Mat& b) {
  Mat result{};
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t column = 0; column < 3; ++column) {
      for (std::size_t k = 0; k < 3; ++k) result[row][column] += a[row][k] * b[k][column];
    }
  }
  return result;
}

Mat transposed(const Mat& m) {
  return {{{m[0][0], m[1][0], m[2][0]}, {m[0][1], m[1][1], m[2][1]}, {m[0][2], m[1][2], m[2][2]}}};
}

Vec normalised(const Vec& v) {
  const double norm = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  return {v[0] / norm, v[1] / norm, v[2] / norm};
}

// Rodrigues' formula.
Mat rotation(const Vec& direction, double angle) {
  const Vec a = normalised(direction);
  const double c = std::cos(angle);
  const double s = std::sin(angle);
  const double t = 1 - c;
  return {{{t * a[0] * a[0] + c, t * a[0] * a[1] - s * a[2], t * a[0] * a[2] + s * a[1]},
           {t * a[0] * a[1] + s * a[2], t * a[1] * a[1] + c, t * a[1] * a[2] - s * a[0]},
           {t * a[0] * a[2] - s * a[1], t * a[1] * a[2] + s * a[0], t * a[2] * a[2] + c}}};
}

// The turn from one orientation to another, made to the ratio u of its angle.
Mat between(const Mat& from, const Mat& to, double u) {
  const Mat turn = transposed(from) * to;
  const double cosine = (turn[0][0] + turn[1][1] + turn[2][2] - 1) / 2;
  const double angle = std::acos(std::min(1.0, std::max(-1.0, cosine)));
  const Vec axis{turn[2][1] - turn[1][2], turn[0][2] - turn[2][0], turn[1][0] - turn[0][1]};
  if (angle < 1e-9) return from;
  return from * rotation(axis, u * angle);
}

struct Rigid {
  Mat turn = kIdentity;
  Vec shift{};

  Vec operator*(const Vec& v) const { return turn * v + shift; }
};

Eigen::Matrix4f matrixOf(const Rigid& rigid) {
  Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
  for (std::size_t row = 0; row < 3; ++row) {
    const auto r = static_cast<Eigen::Index>(row);
    for (std::size_t column = 0; column < 3; ++column) {
      matrix(r, static_cast<Eigen::Index>(column)) = static_cast<float>(rigid.turn[row][column]);
    }
    matrix(r, 3) = static_cast<float>(rigid.shift[row]);
  }
  return matrix;
}

Rigid inverted(const Rigid& rigid) {
  const Mat back = transposed(rigid.turn);
  const Vec moved = back * rigid.shift;
  return {back, {-moved[0], -moved[1], -moved[2]}};
}

// A motor record from axis and angle; the sign of a quaternion does not change what it stands for.
std::shared_ptr<MotorMsg> motor(double time, const Vec& direction, double angle,
                                float sign = 1.0F) {
  const Vec axis = normalised(direction);
  auto record = std::make_shared<MotorMsg>();
  record->time = time;
  record->qx = sign * static_cast<float>(axis[0] * std::sin(angle / 2));
  record->qy = sign * static_cast<float>(axis[1] * std::sin(angle / 2));
  record->qz = sign * static_cast<float>(axis[2] * std::sin(angle / 2));
  record->qw = sign * static_cast<float>(std::cos(angle / 2));
  return record;
}

PointIRT point(double x, double y, double z, double time = 0.0) {
  PointIRT result;
  result.x = static_cast<float>(x);
  result.y = static_cast<float>(y);
  result.z = static_cast<float>(z);
  result.timestamp = time;
  return result;
}

std::shared_ptr<PointCloudMsg> cloudOf(const std::vector<PointIRT>& points) {
  auto message = std::make_shared<PointCloudMsg>();
  message->cloud = std::make_shared<PointCloud>();
  message->cloud->points = points;
  message->cloud->width = static_cast<std::uint32_t>(points.size());
  return message;
}

double distance(const PointIRT& p, const Vec& v) {
  return std::hypot(static_cast<double>(p.x) - v[0], static_cast<double>(p.y) - v[1],
                    static_cast<double>(p.z) - v[2]);
}

// What single precision may make of a point: two in a million of its range, which is some ten of
// its roundings, and no less than what the coordinates themselves are worth.
double allowedM(const Vec& v) { return std::max(1e-5, 2e-6 * std::hypot(v[0], v[1], v[2])); }

// The point with its elevation raised: turned about the horizontal axis across its azimuth.
Vec raised(const Vec& v, double e) { return rotation({v[1], -v[0], 0}, e) * v; }

PointIRT transformed(const PointsTransformer& transformer, const Motors& motors,
                     const PointIRT& p) {
  const auto cloud = cloudOf({p});
  EXPECT_EQ(transformer.CorrectLidarAndTransformToImuFrame(motors, cloud), kTransformOk);
  return cloud->cloud->points[0];
}

constexpr Vec kZ{0, 0, 1};
constexpr double kPi = std::numbers::pi;
constexpr double kT = 1700000000.0;  // a time as recordings have it, s

}  // namespace

TEST(CorrectLidarPoint, RaisesElevationAndKeepsRangeAndAzimuth) {
  SensorParameters params;
  params.lidar = {Eigen::Vector2f(3, 4), 0.01F, true};
  PointsTransformer transformer;
  ASSERT_TRUE(transformer.setParameters(params));
  std::mt19937 random(3);
  std::uniform_real_distribution<double> coordinate(-50, 50);
  for (int i = 0; i < 2000; ++i) {
    const Vec before{coordinate(random), coordinate(random), coordinate(random) / 4};
    PointIRT p = point(before[0], before[1], before[2], 7.5);
    p.intensity = 9.0F;
    p.ring = 3;
    p.normal_x = 0.5F;
    // The reference turns the point about the horizontal axis across its azimuth.
    const Vec across{before[1], -before[0], 0};
    const Vec expected = rotation(across, static_cast<double>(0.01F)) * before;
    transformer.CorrectLidarPoint(p);
    EXPECT_LT(distance(p, expected), allowedM(before))
        << before[0] << " " << before[1] << " " << before[2];
    EXPECT_EQ(p.timestamp, 7.5);
    EXPECT_EQ(p.intensity, 9.0F);
    EXPECT_EQ(p.ring, 3);
    EXPECT_EQ(p.normal_x, 0.5F);
  }
}

TEST(CorrectLidarPoint, LeavesPointsAtTheOriginAlone) {
  SensorParameters params;
  params.lidar = {Eigen::Vector2f::Zero(), 0.5F, true};
  PointsTransformer transformer;
  ASSERT_TRUE(transformer.setParameters(params));
  for (const PointIRT& before :
       {point(0, 0, 0), point(0.001, 0, 0), point(0.0005, 0.0005, -0.0005)}) {
    PointIRT p = before;
    transformer.CorrectLidarPoint(p);
    EXPECT_EQ(p.x, before.x);
    EXPECT_EQ(p.y, before.y);
    EXPECT_EQ(p.z, before.z);
  }
  PointIRT p = point(0.0011, 0, 0);
  transformer.CorrectLidarPoint(p);
  EXPECT_GT(p.z, 0.0005F);
}

TEST(CorrectLidarPoint, StandsNonFiniteAndHugePoints) {
  SensorParameters params;
  params.lidar = {Eigen::Vector2f::Zero(), 0.01F, true};
  PointsTransformer transformer;
  ASSERT_TRUE(transformer.setParameters(params));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  PointIRT undefined = point(nan, 1, 2);
  transformer.CorrectLidarPoint(undefined);
  EXPECT_TRUE(std::isnan(undefined.x));
  EXPECT_EQ(undefined.y, 1.0F);
  PointIRT huge = point(3e38, 3e38, 3e38);
  transformer.CorrectLidarPoint(huge);
}

TEST(CorrectLidarPoint, TakesAPointOnTheVerticalAxisForOneOfAzimuthZero) {
  SensorParameters params;
  params.lidar = {Eigen::Vector2f::Zero(), 0.25F, true};
  PointsTransformer transformer;
  ASSERT_TRUE(transformer.setParameters(params));
  for (const double z : {5.0, -5.0}) {
    PointIRT p = point(0, 0, z);
    transformer.CorrectLidarPoint(p);
    EXPECT_LT(distance(p, {-z * std::sin(0.25), 0, z * std::cos(0.25)}), 1e-5);
    // So near the axis that the square of its distance is nothing: the azimuth counts all the same.
    PointIRT beside = point(0, 1e-25, z);
    transformer.CorrectLidarPoint(beside);
    EXPECT_LT(distance(beside, {0, -z * std::sin(0.25), z * std::cos(0.25)}), 1e-5);
  }
}

TEST(PointsTransformerCloud, IsAsNearToDoublePrecisionAsSinglePrecisionAllows) {
  std::mt19937 random(29);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (int scan = 0; scan < 12; ++scan) {
    const Rigid lidarFromMotor{rotation({unit(random), unit(random), 1.5}, 2 * unit(random)),
                               {unit(random), unit(random), unit(random)}};
    const Rigid motorFromImu{rotation({1.5, unit(random), unit(random)}, 2 * unit(random)),
                             {unit(random), unit(random), unit(random)}};
    SensorParameters params;
    params.lidar = {Eigen::Vector2f::Zero(), static_cast<float>(0.02 * unit(random)), true};
    params.motor = {matrixOf(lidarFromMotor), true};
    params.imuMotor = {matrixOf(motorFromImu), true};
    PointsTransformer transformer;
    ASSERT_TRUE(transformer.setParameters(params));

    // From 0.00003 to 1 rad between records, of either sign; a power of two of seconds apart, so
    // that ratios are exact.
    const Vec axis = normalised({unit(random), unit(random), unit(random) + 1.1});
    const double turn = std::pow(10.0, -4.5 + 4.5 * scan / 11);
    constexpr double kPeriod = 1.0 / 128;
    Motors motors;
    for (int i = 0; i < 17; ++i) {
      motors.push_back(motor(kT + i * kPeriod, axis, i * turn, random() % 2 == 0 ? 1.0F : -1.0F));
    }
    // Nearly in order, as the beams of a scanner are.
    std::vector<PointIRT> points;
    std::vector<Vec> expected;
    for (int i = 0; i < 2000; ++i) {
      const double range = std::pow(10.0, 1.1 + 1.1 * unit(random));
      const Vec direction = normalised({unit(random), unit(random), unit(random)});
      PointIRT p = point(range * direction[0], range * direction[1], range * direction[2],
                         kT + 16 * kPeriod * (i + 1 + 40 * std::abs(unit(random))) / 2041);
      points.push_back(p);
      const double since = (p.timestamp - kT) / kPeriod;
      const double record = std::ceil(since) - 1;
      const Mat orientation = between(rotation(axis, record * turn),
                                      rotation(axis, (record + 1) * turn), since - record);
      const Vec lidar{static_cast<double>(p.x), static_cast<double>(p.y), static_cast<double>(p.z)};
      expected.push_back(inverted(motorFromImu) *
                         (orientation * (inverted(lidarFromMotor) *
                                         raised(lidar, static_cast<double>(params.lidar.e)))));
    }
    LogCapture log;
    const auto cloud = cloudOf(points);
    EXPECT_EQ(transformer.CorrectLidarAndTransformToImuFrame(motors, cloud), kTransformOk);
    EXPECT_THAT(log.lines(), IsEmpty());
    for (std::size_t i = 0; i < points.size(); ++i) {
      ASSERT_LT(distance(cloud->cloud->points[i], expected[i]), allowedM(expected[i]))
          << "turn " << turn << " point " << i;
    }
  }
}

TEST(PointsTransformerCloud, GivesEveryPointWhatItGetsAlone) {
  SensorParameters params;
  params.lidar = {Eigen::Vector2f::Zero(), 0.01F, true};
  params.motor = {matrixOf({rotation({1, 2, 3}, 0.7), {0.1, 0.2, 0.3}}), true};
  PointsTransformer transformer;
  ASSERT_TRUE(transformer.setParameters(params));
  const Motors motors{motor(1.0, kZ, 0.0), motor(1.1, kZ, 0.3), motor(1.2, kZ, 0.9)};
  std::mt19937 random(31);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (const std::size_t size : {1U, 3U, 63U, 64U, 65U, 200U}) {
    std::vector<PointIRT> points;
    for (std::size_t i = 0; i < size; ++i) {
      // Some have no records, some no direction, and some lie on the vertical axis.
      const double scale = i % 11 == 5 ? 0.0 : 10.0;
      const double side = i % 7 == 3 ? 0.0 : scale;
      points.push_back(point(side * unit(random), side * unit(random), scale * unit(random),
                             1.1 + 0.13 * unit(random)));
    }
    const LogCapture log;
    const auto cloud = cloudOf(points);
    EXPECT_EQ(transformer.CorrectLidarAndTransformToImuFrame(motors, cloud), kTransformOk);
    for (std::size_t i = 0; i < size; ++i) {
      const PointIRT alone = transformed(transformer, motors, points[i]);
      const PointIRT& p = cloud->cloud->points[i];
      EXPECT_LT(distance(p, {static_cast<double>(alone.x), static_cast<double>(alone.y),
                             static_cast<double>(alone.z)}),
                1e-6)
          << i << " of " << size;
    }
  }
}

TEST(PointsTransformerMotor, EqualsAxisAngleReferenceForTurnsOfAnySize) {
  std::mt19937 random(17);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (int i = 0; i < 3000; ++i) {
    const Rigid lidarFromMotor{rotation({unit(random), unit(random), 1.5}, 2 * unit(random)),
                               {unit(random), unit(random), unit(random)}};
    const Rigid motorFromImu{rotation({1.5, unit(random), unit(random)}, 2 * unit(random)),
                             {unit(random), unit(random), unit(random)}};
    SensorParameters params;
    params.motor = {matrixOf(lidarFromMotor), true};
    params.imuMotor = {matrixOf(motorFromImu), true};
    PointsTransformer transformer;
    ASSERT_TRUE(transformer.setParameters(params));

    const Vec axis = normalised({unit(random), unit(random), unit(random) + 1.1});
    const double first = 3 * unit(random);
    const double turn = std::pow(10.0, 3 * unit(random) - 2.7);  // 0.000002 to 2 rad
    const double u = (unit(random) + 1) / 2;
    const double span = 1.0 / 128;  // exact in binary, so that u is what the code computes
    const Motors motors{motor(kT, axis, first),
                        motor(kT + span, axis, first + turn, i % 2 == 0 ? 1.0F : -1.0F)};
    const double time = kT + u * span;
    const double exactU = (time - kT) / span;
    if (time <= kT || time > kT + span) continue;

    const Vec before{20 * unit(random), 20 * unit(random), 5 * unit(random)};
    const Vec expected = inverted(motorFromImu) *
                         (between(rotation(axis, first), rotation(axis, first + turn), exactU) *
                          (inverted(lidarFromMotor) * before));
    const PointIRT p =
        transformed(transformer, motors, point(before[0], before[1], before[2], time));
    // 30 m in single precision are exact to 2 um; some twenty roundings and the angle, whose cosine
    // is known to 6e-8, follow.
    ASSERT_LT(distance(p, expected), 1e-4) << "turn " << turn << " u " << exactU;
  }
}

TEST(PointsTransformerMotor, UsesLinearWeightsForNearlyEqualOrientations) {
  // A turn of 0.0004 rad: |q0 q1| = 0.99999998, above the threshold.
  const PointsTransformer transformer;
  for (const float sign : {1.0F, -1.0F}) {
    const Motors motors{motor(1.0, kZ, 0.0), motor(2.0, kZ, 0.0004, sign)};
    const PointIRT p = transformed(transformer, motors, point(100, 0, 0, 1.25));
    EXPECT_NEAR(p.y, 100 * 0.0001, 2e-5);
  }
}

TEST(PointsTransformerMotor, TakesTheShorterArcBetweenOppositeSigns) {
  const PointsTransformer transformer;
  const Motors motors{motor(1.0, kZ, 0.0), motor(2.0, kZ, kPi / 2, -1.0F)};
  const PointIRT p = transformed(transformer, motors, point(10, 0, 0, 1.5));
  EXPECT_NEAR(p.x, 10 * std::cos(kPi / 4), 1e-5);
  EXPECT_NEAR(p.y, 10 * std::sin(kPi / 4), 1e-5);
}

TEST(PointsTransformerMotor, RecordOfThePointsOwnTimeGivesItsOrientation) {
  const PointsTransformer transformer;
  const Motors motors{motor(1.0, kZ, 0.25), motor(2.0, kZ, 0.5), motor(3.0, kZ, 0.75)};
  for (int i = 0; i < 3; ++i) {
    LogCapture log;
    const PointIRT p = transformed(transformer, motors, point(10, 0, 0, 1.0 + i));
    EXPECT_NEAR(p.x, 10 * std::cos(0.25 + 0.25 * i), 2e-6);
    EXPECT_NEAR(p.y, 10 * std::sin(0.25 + 0.25 * i), 2e-6);
    EXPECT_THAT(log.lines(), IsEmpty());
  }
}

TEST(PointsTransformerMotor, ComputesTheTimeRatioInDouble) {
  // Microseconds at the times of recordings: single precision would put both records at one time.
  const PointsTransformer transformer;
  const Motors motors{motor(kT, kZ, 0.0), motor(kT + 0.001, kZ, 1.0)};
  const double time = kT + 0.00025;
  const double u = (time - kT) / (kT + 0.001 - kT);
  const PointIRT p = transformed(transformer, motors, point(10, 0, 0, time));
  EXPECT_NEAR(std::atan2(p.y, p.x), u, 1e-6);
}

TEST(PointsTransformerMotor, PointAfterTheLastRecordKeepsLidarCoordinates) {
  SensorParameters params;
  params.motor = {matrixOf({rotation(kZ, 1), {1, 2, 3}}), true};
  PointsTransformer transformer;
  ASSERT_TRUE(transformer.setParameters(params));
  const Motors motors{motor(1.0, kZ, 0.0), motor(2.0, kZ, 1.0)};
  LogCapture log;
  const auto cloud = cloudOf({point(4, 5, 6, 2.5), point(4, 5, 6, 1.5)});
  EXPECT_EQ(transformer.CorrectLidarAndTransformToImuFrame(motors, cloud), kTransformOk);
  EXPECT_THAT(
      log.lines(),
      ElementsAre("<W>TIME [PointsTransformer::CorrectLidarAndTransformToImuFrame,L0] motor "
                  "index out of range(2>=2)!"));
  EXPECT_EQ(distance(cloud->cloud->points[0], {4, 5, 6}), 0.0);
  EXPECT_GT(distance(cloud->cloud->points[1], {4, 5, 6}), 0.1);
}

TEST(PointsTransformerMotor, PointBeforeTheFirstRecordIsTreatedAlike) {
  const PointsTransformer transformer;
  const Motors motors{motor(1.0, kZ, 1.0), motor(2.0, kZ, 2.0)};
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const double time : {0.999, nan}) {
    LogCapture log;
    const PointIRT p = transformed(transformer, motors, point(4, 5, 6, time));
    EXPECT_THAT(log.lines(),
                ElementsAre("<W>TIME [PointsTransformer::CorrectLidarAndTransformToImuFrame,L0] "
                            "motor index out of range(2>=2)!"));
    EXPECT_EQ(distance(p, {4, 5, 6}), 0.0);
  }
}

TEST(PointsTransformerMotor, PointWithoutRecordsIsStillCorrectedInElevation) {
  SensorParameters params;
  params.lidar = {Eigen::Vector2f::Zero(), 0.01F, true};
  PointsTransformer transformer;
  ASSERT_TRUE(transformer.setParameters(params));
  const LogCapture log;
  const PointIRT p = transformed(transformer, {motor(1.0, kZ, 1.0)}, point(10, 0, 0, 2.0));
  EXPECT_LT(distance(p, {10 * std::cos(0.01), 0, 10 * std::sin(0.01)}), 1e-5);
}

TEST(PointsTransformerMotor, CorrectsElevationOnlyWhereCalibrated) {
  for (const bool calibrated : {false, true}) {
    SensorParameters params;
    params.lidar = {Eigen::Vector2f::Zero(), 0.01F, calibrated};
    PointsTransformer transformer;
    ASSERT_TRUE(transformer.setParameters(params));
    const Motors motors{motor(1.0, kZ, 0.0), motor(2.0, kZ, 0.0)};
    const PointIRT p = transformed(transformer, motors, point(10, 0, 0, 1.5));
    EXPECT_NEAR(p.z, calibrated ? 10 * std::sin(0.01) : 0.0, 1e-6);
  }
}

TEST(PointsTransformerMotor, StandsRecordsThatAreRepeatedOrOutOfOrder) {
  const PointsTransformer transformer;
  const float nan = std::numeric_limits<float>::quiet_NaN();
  auto undefined = motor(1.5, kZ, 0.0);
  undefined->qx = undefined->qw = nan;
  auto zero = motor(1.5, kZ, 0.0);
  zero->qx = zero->qy = zero->qz = zero->qw = 0.0F;
  const std::vector<Motors> hostile = {
      {motor(1.0, kZ, 0.5), motor(1.0, kZ, 0.5), motor(1.0, kZ, 0.5)},
      {motor(2.0, kZ, 0.5), motor(1.0, kZ, 0.5)},
      {motor(1.0, kZ, 0.5), undefined, motor(2.0, kZ, 0.5)},
      {motor(1.0, kZ, 0.5), zero, motor(2.0, kZ, 0.5)},
      {motor(std::nan(""), kZ, 0.5), motor(std::nan(""), kZ, 0.5)}};
  for (const Motors& motors : hostile) {
    const LogCapture log;
    std::vector<PointIRT> points;
    for (int i = 0; i < 30; ++i) points.push_back(point(1, 2, 3, 0.1 * i));
    const auto cloud = cloudOf(points);
    EXPECT_EQ(transformer.CorrectLidarAndTransformToImuFrame(motors, cloud), kTransformOk);
    EXPECT_EQ(cloud->cloud->points.size(), 30U);
  }
  // A repeated time leaves one orientation, not a division by zero.
  const Motors repeated{motor(1.0, kZ, 0.5), motor(1.0, kZ, 0.5), motor(2.0, kZ, 0.5)};
  const PointIRT p = transformed(transformer, repeated, point(10, 0, 0, 1.0));
  EXPECT_NEAR(std::atan2(p.y, p.x), 0.5, 1e-6);
}

TEST(PointsTransformerErrors, NoMotorsLeaveTheCloudUnchanged) {
  SensorParameters params;
  params.lidar = {Eigen::Vector2f::Zero(), 0.5F, true};
  params.imuLidar = {matrixOf({kIdentity, {1, 1, 1}}),
                     true};  // no compensation: an error all the same
  PointsTransformer transformer;
  ASSERT_TRUE(transformer.setParameters(params));
  LogCapture log;
  const auto cloud = cloudOf({point(1, 2, 3, 1.0)});
  EXPECT_EQ(transformer.CorrectLidarAndTransformToImuFrame({}, cloud), kTransformNoMotors);
  EXPECT_EQ(distance(cloud->cloud->points[0], {1, 2, 3}), 0.0);
  EXPECT_THAT(
      log.lines(),
      ElementsAre("<E>TIME [PointsTransformer::CorrectLidarAndTransformToImuFrame,L0] Motor "
                  "messages are empty, cannot perform motor compensation!"));
}

TEST(PointsTransformerErrors, EmptyOrMissingCloudIsAnError) {
  const PointsTransformer transformer;
  const Motors motors{motor(1.0, kZ, 0.5)};
  for (const auto& cloud :
       {cloudOf({}), std::make_shared<PointCloudMsg>(), std::shared_ptr<PointCloudMsg>()}) {
    LogCapture log;
    EXPECT_EQ(transformer.CorrectLidarAndTransformToImuFrame(motors, cloud), kTransformEmptyCloud);
    EXPECT_THAT(log.lines(),
                ElementsAre("<E>TIME [PointsTransformer::CorrectLidarAndTransformToImuFrame,L0] "
                            "cloud is empty!"));
  }
}

TEST(PointsTransformerParameters, CompensationIsOffOnlyWithImuLidarAndWithoutMotorDocument) {
  const Rigid motorFromImu{rotation(kZ, 0.2), {0, 0, 1}};
  const Rigid lidarFromImu{rotation({1, 0, 0}, kPi / 2), {0, 0, 5}};
  const Motors motors{motor(1.0, kZ, 0.5), motor(2.0, kZ, 0.5)};
  const Vec before{10, 0, 0};
  for (const bool motorGiven : {false, true}) {
    for (const bool imuLidarGiven : {false, true}) {
      SensorParameters params;
      params.motor.given = motorGiven;
      params.imuMotor = {matrixOf(motorFromImu), true};
      params.imuLidar = {matrixOf(lidarFromImu), imuLidarGiven};
      PointsTransformer transformer;
      ASSERT_TRUE(transformer.setParameters(params));
      const PointIRT p = transformed(transformer, motors, point(10, 0, 0, 1.5));
      const Vec compensated = inverted(motorFromImu) * (rotation(kZ, 0.5) * before);
      const Vec direct = inverted(lidarFromImu) * before;
      EXPECT_LT(distance(p, !motorGiven && imuLidarGiven ? direct : compensated), 1e-5)
          << motorGiven << imuLidarGiven;
    }
  }
}

TEST(PointsTransformerParameters, WithoutCompensationPointTimesDoNotMatter) {
  SensorParameters params;
  params.imuLidar = {matrixOf({kIdentity, {0, 0, 5}}), true};
  PointsTransformer transformer;
  ASSERT_TRUE(transformer.setParameters(params));
  LogCapture log;
  const PointIRT p = transformed(transformer, {motor(1.0, kZ, 0.5)}, point(1, 2, 3, 99.0));
  EXPECT_LT(distance(p, {1, 2, -2}), 1e-6);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(PointsTransformerParameters, SingularTransformIsRefusedAndChangesNothing) {
  SensorParameters params;
  params.motor = {Eigen::Matrix4f::Zero(), true};
  PointsTransformer transformer;
  LogCapture log;
  EXPECT_FALSE(transformer.setParameters(params));
  EXPECT_THAT(log.lines(),
              ElementsAre("<E>TIME [PointsTransformer::setMotion,L0] the motor to lidar "
                          "transform has no finite inverse!"));
  params.motor = {};
  params.imuMotor.transform(3, 3) = std::numeric_limits<float>::quiet_NaN();
  EXPECT_FALSE(transformer.setParameters(params));
  params.imuMotor = {};
  params.imuLidar = {Eigen::Matrix4f::Ones(), true};
  EXPECT_FALSE(transformer.setParameters(params));

  const Motors motors{motor(1.0, kZ, 0.0), motor(2.0, kZ, 0.0)};
  EXPECT_LT(distance(transformed(transformer, motors, point(1, 2, 3, 1.5)), {1, 2, 3}), 1e-6);
}

TEST(PointsTransformerParameters, SingularTransformThatIsNotNeededIsNoHindrance) {
  SensorParameters params;
  params.imuLidar = {Eigen::Matrix4f::Identity(), true};
  params.imuMotor = {Eigen::Matrix4f::Zero(), true};
  PointsTransformer transformer;
  EXPECT_TRUE(transformer.setParameters(params));
}

}  // namespace morva
