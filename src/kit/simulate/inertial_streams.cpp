// The sensors of attitude and motion: IMU, magnetometer and motor encoder.
#include <cmath>
#include <memory>
#include <numbers>

#include <Eigen/Geometry>

#include "kit/simulate/sampled_stream.h"
#include "kit/simulate/streams.h"
#include "kit/simulate/time_base.h"

namespace morva::sim {

namespace {

using Eigen::Vector3d;
namespace pb = protix::kbag_msgs;

std::int64_t endOf(const Scene& scene) { return kStartUs + durationUs(scene.options.seconds); }

class ImuStream final : public SampledStream<pb::ImuMsgArray> {
 public:
  explicit ImuStream(const Scene& scene)
      : SampledStream("/imu", {kStartUs, endOf(scene), kImuPeriodUs, 20}, 100'000'000),
        scene_(scene) {}

 private:
  bool fill(std::int64_t timeUs, pb::ImuMsg* sample) override {
    const Motion motion = scene_.path.motionAt(sinceStartS(timeUs));
    const Vector3d accel = scene_.calibration.accelerometer.distort(motion.specificForce);
    const Vector3d gyro = scene_.calibration.gyroscope.distort(motion.angularRate);
    sample->set_accel_x(coded(accel.x()));
    sample->set_accel_y(coded(accel.y()));
    sample->set_accel_z(coded(accel.z()));
    sample->set_gyro_x(coded(gyro.x()));
    sample->set_gyro_y(coded(gyro.y()));
    sample->set_gyro_z(coded(gyro.z()));
    return true;
  }

  const Scene& scene_;
};

class MagneticStream final : public SampledStream<pb::MagneticMsgArray> {
 public:
  explicit MagneticStream(const Scene& scene)
      : SampledStream("/magnetic", {kStartUs, endOf(scene), kMagneticPeriodUs, 5}, 10'000),
        scene_(scene),
        random_(scene.options.seed, "magnetic") {
    softIron_ << 1.04, 0.02, -0.01, 0.02, 0.97, 0.015, -0.01, 0.015, 1.01;
    hardIron_ << random_.uniform(-20.0, 20.0), random_.uniform(-20.0, 20.0),
        random_.uniform(-20.0, 20.0);
  }

 private:
  // The field at the place of the recording, uT, world frame; it points down and a little east.
  static constexpr double kHorizontalUt = 21.1;
  static constexpr double kDownUt = 43.6;
  static constexpr double kDeclinationDeg = 4.3;
  static constexpr double kNoiseUt = 0.05;

  bool fill(std::int64_t timeUs, pb::MagneticMsg* sample) override {
    constexpr double kDeclination = kDeclinationDeg * std::numbers::pi / 180.0;
    const Vector3d field(kHorizontalUt * std::sin(kDeclination),
                         kHorizontalUt * std::cos(kDeclination), -kDownUt);
    const Eigen::Isometry3d worldFromImu = scene_.path.poseAt(sinceStartS(timeUs));
    Vector3d calibrated = worldFromImu.linear().transpose() * field;
    for (double& value : calibrated.reshaped()) value += kNoiseUt * random_.gaussian();
    const Vector3d measured = softIron_ * calibrated + hardIron_;
    sample->set_mag_x(coded(measured.x()));
    sample->set_mag_y(coded(measured.y()));
    sample->set_mag_z(coded(measured.z()));
    sample->set_calib_mag_x(coded(calibrated.x()));
    sample->set_calib_mag_y(coded(calibrated.y()));
    sample->set_calib_mag_z(coded(calibrated.z()));
    sample->set_declination(coded(kDeclinationDeg));
    sample->set_state(3);
    return true;
  }

  const Scene& scene_;
  Random random_;
  Eigen::Matrix3d softIron_;
  Vector3d hardIron_;
};

class MotorStream final : public SampledStream<pb::OdometryMsgArray> {
 public:
  explicit MotorStream(const Scene& scene)
      : SampledStream(
            "/lidar_to_platform",
            {kStartUs - kMotorMarginUs, endOf(scene) + kMotorMarginUs, kMotorPeriodUs, 100},
            1'000'000'000),
        scene_(scene) {}

 private:
  // The encoder counts within one turn, so the quaternion's sign jumps once a turn.
  bool fill(std::int64_t timeUs, pb::OdometryMsg* sample) override {
    constexpr double kTurn = 2.0 * std::numbers::pi;
    const double total = scene_.motor.angleAt(sinceStartS(timeUs));
    const double angle = total - kTurn * std::floor(total / kTurn);
    sample->set_qw(coded(std::cos(angle / 2.0)));
    sample->set_qx(0);
    sample->set_qy(0);
    sample->set_qz(coded(std::sin(angle / 2.0)));
    sample->set_angle(coded(angle));
    return true;
  }

  const Scene& scene_;
};

}  // namespace

StreamPtr makeImuStream(const Scene& scene) { return std::make_unique<ImuStream>(scene); }

StreamPtr makeMagneticStream(const Scene& scene) { return std::make_unique<MagneticStream>(scene); }

StreamPtr makeMotorStream(const Scene& scene) { return std::make_unique<MotorStream>(scene); }

}  // namespace morva::sim
