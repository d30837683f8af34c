// Compiled without errno and traps of mathematical functions: neither is looked at here, and either
// keeps square roots and divisions from being vectorised.

#include "export/point_batch.h"

#include <algorithm>
#include <cmath>

#include <Eigen/Geometry>

namespace morva {
namespace {

constexpr float kSmallestRangeM = 0.001F;
constexpr double kStraightCosine = 0.9999999;  // above it the arc is as good as straight
// Squares outside of these may have lost digits, or passed the largest number.
constexpr float kSmallestSquare = 1e-24F;
constexpr float kLargestSquare = 1e30F;
constexpr std::size_t kLanes = 8;

std::array<float, 12> elementsOf(const AffineMotion& motion) {
  std::array<float, 12> elements{};
  float* element = elements.data();
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 4; ++column) {
      *element++ = static_cast<float>(motion(row, column));
    }
  }
  return elements;
}

Eigen::Matrix3d crossMatrix(const Eigen::Vector3d& v) {
  Eigen::Matrix3d matrix;
  matrix << 0.0, -v.z(), v.y(), v.z(), 0.0, -v.x(), -v.y(), v.x(), 0.0;
  return matrix;
}

/// The bilinear form B of the rotation matrix: R(q) = I + B(q, q), and 2 B(p, q) is what p + q has
/// more than p and q.
Eigen::Matrix3d rotationForm(const Eigen::Quaterniond& p, const Eigen::Quaterniond& q) {
  const Eigen::Matrix3d crossP = crossMatrix(p.vec());
  const Eigen::Matrix3d crossQ = crossMatrix(q.vec());
  return p.w() * crossQ + q.w() * crossP + crossP * crossQ + crossQ * crossP;
}

Eigen::Quaterniond orientationOf(const MotorMsg& motor) {
  return {static_cast<double>(motor.qw), static_cast<double>(motor.qx),
          static_cast<double>(motor.qy), static_cast<double>(motor.qz)};
}

/// sin(x) for x of [0, pi / 2], within 2e-9 before rounding: the polynomial 4.3.97 of Abramowitz
/// and Stegun's handbook.
inline float sineOf(float x) {
  const float s = x * x;
  return x * (1.0F + s * (-0.1666666664F +
                          s * (0.0083333315F +
                               s * (-0.0001984090F + s * (0.0000027526F + s * -0.0000000239F)))));
}

/// As the angles say it, for points whose squares say nothing.
void elevateByAngles(float e, float* x, float* y, float* z) {
  const float range = std::sqrt(*x * *x + *y * *y + *z * *z);
  const float elevation = std::asin(*z / range) + e;
  const float azimuth = std::atan2(*y, *x);
  *z = range * std::sin(elevation);
  *x = range * std::cos(elevation) * std::cos(azimuth);
  *y = range * std::cos(elevation) * std::sin(azimuth);
}

}  // namespace

MotorArc::MotorArc(const AffineMotion& motorFromLidar, const AffineMotion& imuFromMotor,
                   const MotorMsg& first, const MotorMsg& second)
    : startS_(first.time) {
  // Records that are not in order have no time between them: take the second one, which is not
  // earlier than the point.
  const double span = second.time - first.time;
  perSecond_ = span > 0.0 ? 1.0 / span : 0.0;
  offset_ = span > 0.0 ? 0.0 : 1.0;

  const Eigen::Quaterniond from = orientationOf(first);
  Eigen::Quaterniond to = orientationOf(second);
  const double cosine = from.dot(to);
  if (cosine < 0.0) to.coeffs() = -to.coeffs();  // the shorter way round
  isStraight_ = !(std::abs(cosine) < kStraightCosine);
  if (!isStraight_) {
    const double angle = std::acos(std::abs(cosine));
    angle_ = static_cast<float>(angle);
    perSine_ = static_cast<float>(1.0 / std::sin(angle));
  }

  const Eigen::Quaterniond turn(Eigen::Vector4d(to.coeffs() - from.coeffs()));
  const Eigen::Matrix3d ofFrom = rotationForm(from, from);
  const auto outer = [&](const Eigen::Matrix3d& rotation) -> AffineMotion {
    return imuFromMotor.leftCols<3>() * (rotation * motorFromLidar);
  };
  AffineMotion constant = outer(Eigen::Matrix3d::Identity() + ofFrom);
  constant.col(3) += imuFromMotor.col(3);
  motions_ = {elementsOf(constant), elementsOf(outer(ofFrom)),
              elementsOf(outer(2.0 * rotationForm(from, turn))),
              elementsOf(outer(rotationForm(turn, turn)))};
}

void PointBatch::load(std::span<const PointIRT> points) {
  size_ = points.size();
  lanes_ = (size_ + kLanes - 1) / kLanes * kLanes;
  for (std::size_t i = 0; i < size_; ++i) {
    x_[i] = points[i].x;
    y_[i] = points[i].y;
    z_[i] = points[i].z;
  }
}

void PointBatch::store(std::span<PointIRT> points) const {
  for (std::size_t i = 0; i < size_; ++i) {
    points[i].x = x_[i];
    points[i].y = y_[i];
    points[i].z = z_[i];
  }
}

// With rho the distance from the vertical axis, the sine and cosine of the elevation are z / r and
// rho / r, and those of the sum follow without a trigonometric function:
//   z' = z cos e + rho sin e,   rho' = rho cos e - z sin e,   x' = x rho' / rho,   y' = y rho' /
//   rho.
void PointBatch::elevate(float e) {
  const float sine = std::sin(e);
  const float cosine = std::cos(e);
  std::array<int, kPoints> isOdd;
  int anyOdd = 0;
  for (std::size_t i = 0; i < lanes_; ++i) {
    const float x = x_[i];
    const float y = y_[i];
    const float z = z_[i];
    const float rhoSquare = x * x + y * y;
    const float square = rhoSquare + z * z;
    const float rho = std::sqrt(rhoSquare);
    const bool hasDirection = std::sqrt(square) > kSmallestRangeM;
    const bool isUsual = (rhoSquare > kSmallestSquare) & (square < kLargestSquare);
    const float factor = cosine - z * sine / rho;
    const bool moves = hasDirection & isUsual;
    x_[i] = moves ? x * factor : x;
    y_[i] = moves ? y * factor : y;
    z_[i] = moves ? z * cosine + rho * sine : z;
    isOdd[i] = static_cast<int>(hasDirection & !isUsual);
    anyOdd |= isOdd[i];
  }
  if (anyOdd != 0) elevateOddPoints(e, isOdd);
}

void PointBatch::elevateOddPoints(float e, const std::array<int, kPoints>& isOdd) {
  for (std::size_t i = 0; i < size_; ++i) {
    if (isOdd[i] != 0) elevateByAngles(e, &x_[i], &y_[i], &z_[i]);
  }
}

void PointBatch::move(const AffineMotion& motion) {
  const std::array<float, 12> m = elementsOf(motion);
  for (std::size_t i = 0; i < lanes_; ++i) {
    const float x = x_[i];
    const float y = y_[i];
    const float z = z_[i];
    x_[i] = m[0] * x + m[1] * y + m[2] * z + m[3];
    y_[i] = m[4] * x + m[5] * y + m[6] * z + m[7];
    z_[i] = m[8] * x + m[9] * y + m[10] * z + m[11];
  }
}

void PointBatch::move(const MotorArc& arc, std::span<const PointIRT> points) {
  alignas(64) Values first;   // weight of the first orientation
  alignas(64) Values second;  // and of the second one
  second.fill(0.0F);
  for (std::size_t i = 0; i < size_; ++i) second[i] = arc.ratioAt(points[i].timestamp);
  if (arc.isStraight_) {
    for (std::size_t i = 0; i < lanes_; ++i) first[i] = 1.0F - second[i];
  } else {
    for (std::size_t i = 0; i < lanes_; ++i) {
      const float u = second[i];
      first[i] = sineOf((1.0F - u) * arc.angle_) * arc.perSine_;
      second[i] = sineOf(u * arc.angle_) * arc.perSine_;
    }
  }

  const std::array<std::array<float, 12>, 4> motions = arc.motions_;
  for (std::size_t i = 0; i < lanes_; ++i) {
    const float sum = first[i] + second[i];
    const float a = sum * sum - 1.0F;
    const float b = sum * second[i];
    const float c = second[i] * second[i];
    const auto element = [&](std::size_t k) {
      return motions[0][k] + (a * motions[1][k] + b * motions[2][k] + c * motions[3][k]);
    };
    const float x = x_[i];
    const float y = y_[i];
    const float z = z_[i];
    x_[i] = element(0) * x + element(1) * y + element(2) * z + element(3);
    y_[i] = element(4) * x + element(5) * y + element(6) * z + element(7);
    z_[i] = element(8) * x + element(9) * y + element(10) * z + element(11);
  }
}

}  // namespace morva
