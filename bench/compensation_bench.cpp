// Elevation and motor compensation, a point: against the textbook form in single precision, which
// takes angles apart with trigonometric functions and searches the records anew for every point.
// Both are held against the same computation in double precision.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <Eigen/Geometry>
#include <benchmark/benchmark.h>

#include "bench/input_messages.h"
#include "export/points_transformer.h"
#include "messages/msg_converter.h"

namespace {

using morva::MotorMsg;
using morva::PointIRT;
using Motors = std::vector<std::shared_ptr<MotorMsg>>;

constexpr double kMotorHz = 100.0;
constexpr double kTurnRadPerS = 3.0;
constexpr float kElevation = 0.004F;

/// What is allowed between a result and that of double precision.
double allowedM(double range) { return std::max(1e-5, 2e-6 * range); }

template <typename Scalar>
using Rigid = Eigen::Transform<Scalar, 3, Eigen::Isometry>;

/// A scan, the records around it and a calibration, as a device might have it.
struct Scene {
  std::shared_ptr<morva::PointCloudMsg> cloud;
  Motors motors;
  morva::SensorParameters params;

  Scene() {
    const auto frames = morva::MsgConverter::fromPointCloudMsgArray(
        morva::bench::LidarMessages().payload(7, morva::bench::kFirstUs));
    cloud = frames.at(0)->cloud;
    for (int i = -2; i < 14; ++i) {
      auto motor = std::make_shared<MotorMsg>();
      motor->time = cloud->time + i / kMotorHz;
      const Eigen::Quaternionf turn(Eigen::Quaterniond(Eigen::AngleAxisd(
          0.3 + kTurnRadPerS * i / kMotorHz, Eigen::Vector3d(0.1, -0.2, 1.0).normalized())));
      motor->qx = turn.x();
      motor->qy = turn.y();
      motor->qz = turn.z();
      motor->qw = turn.w();
      motors.push_back(motor);
    }
    params.lidar = {Eigen::Vector2f::Zero(), kElevation, true};
    params.motor = {transform(0.4, {0.02, 0.01, -0.05}), true};
    params.imuMotor = {transform(-0.2, {0.1, 0.0, 0.08}), true};
  }

 private:
  static Eigen::Matrix4f transform(double angle, const Eigen::Vector3d& shift) {
    Rigid<double> rigid = Rigid<double>::Identity();
    rigid.linear() =
        Eigen::AngleAxisd(angle, Eigen::Vector3d(1.0, 0.5, 0.2).normalized()).toRotationMatrix();
    rigid.translation() = shift;
    return rigid.matrix().cast<float>();
  }
};

/// The textbook form.
template <typename Scalar>
class Textbook {
 public:
  using Vector = Eigen::Matrix<Scalar, 3, 1>;

  explicit Textbook(const morva::SensorParameters& params)
      : e_(static_cast<Scalar>(params.lidar.e)),
        motorFromLidar_(inverse(params.motor.transform)),
        imuFromMotor_(inverse(params.imuMotor.transform)) {}

  [[nodiscard]] Vector corrected(const PointIRT& point, const Motors& motors) const {
    const Vector raised = elevated(Vector(Scalar(point.x), Scalar(point.y), Scalar(point.z)));
    const auto next = std::ranges::lower_bound(motors, point.timestamp, {}, &MotorMsg::time);
    if (next == motors.begin() || next == motors.end()) return raised;
    const MotorMsg& first = **(next - 1);
    const MotorMsg& second = **next;
    const double u = (point.timestamp - first.time) / (second.time - first.time);
    const auto turn = orientation(first).slerp(static_cast<Scalar>(u), orientation(second));
    return imuFromMotor_ * (turn * (motorFromLidar_ * raised));
  }

 private:
  static Rigid<Scalar> inverse(const Eigen::Matrix4f& transform) {
    const Eigen::Matrix4d inverted = transform.cast<double>().inverse();
    Rigid<Scalar> rigid = Rigid<Scalar>::Identity();
    rigid.linear() = inverted.topLeftCorner<3, 3>().cast<Scalar>();
    rigid.translation() = inverted.topRightCorner<3, 1>().cast<Scalar>();
    return rigid;
  }

  static Eigen::Quaternion<Scalar> orientation(const MotorMsg& motor) {
    return {Scalar(motor.qw), Scalar(motor.qx), Scalar(motor.qy), Scalar(motor.qz)};
  }

  [[nodiscard]] Vector elevated(const Vector& p) const {
    const Scalar range = std::sqrt(p.x() * p.x() + p.y() * p.y() + p.z() * p.z());
    if (!(range > Scalar(0.001))) return p;
    const Scalar elevation = std::asin(p.z() / range) + e_;
    const Scalar azimuth = std::atan2(p.y(), p.x());
    return {range * std::cos(elevation) * std::cos(azimuth),
            range * std::cos(elevation) * std::sin(azimuth), range * std::sin(elevation)};
  }

  Scalar e_;
  Rigid<Scalar> motorFromLidar_;
  Rigid<Scalar> imuFromMotor_;
};

const Scene& scene() {
  static const Scene theScene;
  return theScene;
}

/// Transforms the scan again and again and tells the largest error.
/// @param transform  Moves the points of a cloud in place.
template <typename Transform>
void measure(benchmark::State& state, Transform transform) {
  const std::vector<PointIRT>& original = scene().cloud->cloud->points;
  auto cloud = std::make_shared<morva::PointCloudMsg>(*scene().cloud);
  cloud->cloud = std::make_shared<morva::PointCloud>(*scene().cloud->cloud);
  transform(cloud);

  const Textbook<double> reference(scene().params);
  double largest = 0.0;
  double ofAllowed = 0.0;
  for (std::size_t i = 0; i < original.size(); ++i) {
    const PointIRT& p = cloud->cloud->points[i];
    const Eigen::Vector3d expected = reference.corrected(original[i], scene().motors);
    const double error = (Eigen::Vector3f(p.x, p.y, p.z).cast<double>() - expected).norm();
    largest = std::max(largest, error);
    ofAllowed = std::max(ofAllowed, error / allowedM(expected.norm()));
  }
  state.counters["largest_error_m"] = largest;
  state.counters["error_of_allowed"] = ofAllowed;
  if (!(ofAllowed <= 1.0)) return state.SkipWithError("too far from double precision");

  for (auto _ : state) transform(cloud);  // on what came out before: it costs the same
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(original.size()));
}

void compensateOurs(benchmark::State& state) {
  morva::PointsTransformer transformer;
  if (!transformer.setParameters(scene().params)) {
    return state.SkipWithError("the calibration was refused");
  }
  measure(state, [&](const std::shared_ptr<morva::PointCloudMsg>& cloud) {
    benchmark::DoNotOptimize(transformer.CorrectLidarAndTransformToImuFrame(scene().motors, cloud));
  });
}
BENCHMARK(compensateOurs)->Name("Compensation/ours")->Unit(benchmark::kMillisecond);

void compensatePeer(benchmark::State& state) {
  const Textbook<float> textbook(scene().params);
  measure(state, [&](const std::shared_ptr<morva::PointCloudMsg>& cloud) {
    for (PointIRT& point : cloud->cloud->points) {
      const Eigen::Vector3f p = textbook.corrected(point, scene().motors);
      point.x = p.x();
      point.y = p.y();
      point.z = p.z();
    }
    benchmark::ClobberMemory();
  });
}
BENCHMARK(compensatePeer)->Name("Compensation/peer")->Unit(benchmark::kMillisecond);

}  // namespace
