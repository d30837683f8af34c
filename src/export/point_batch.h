#ifndef MORVA_EXPORT_POINT_BATCH_H_
#define MORVA_EXPORT_POINT_BATCH_H_

#include <array>
#include <cstddef>
#include <span>

#include <Eigen/Core>

#include "messages/frames.h"

namespace morva {

/// Coordinates before motion: p' = matrix * (p, 1).
using AffineMotion = Eigen::Matrix<double, 3, 4>;

/// The motion of a point between two motor records, over the ratio u of the time between them:
///
///   p' = imuFromMotor * R(q(u)) * motorFromLidar * p,   q(u) = w0(u) * q0 + w1(u) * q1.
///
/// R is the identity plus a quadratic form of q. With g = w0 + w1 and D = q1 - q0, q is g * q0 + w1
/// * D, so that the motion is a sum of four that are constant between the records:
///
///   (1) * [I, q0 q0]  +  (g * g - 1) * [q0 q0]  +  (g * w1) * [q0 D]  +  (w1 * w1) * [D D].
///
/// The first is the motion at q0; the factors of the others, and with them their rounding errors,
/// are small where the motor turns little between records.
class MotorArc {
 public:
  /// An arc without a turn, so that imuFromMotor * motorFromLidar is all of the motion.
  MotorArc() = default;
  /// @param first, second  Not earlier than each other; orientations are taken for unit
  /// quaternions.
  ///        The arc is the shorter one between them, straight where they are nearly the same.
  MotorArc(const AffineMotion& motorFromLidar, const AffineMotion& imuFromMotor,
           const MotorMsg& first, const MotorMsg& second);

  /// Sets the ratios u of points, from their times in seconds.
  [[nodiscard]] float ratioAt(double timeS) const {
    return static_cast<float>((timeS - startS_) * perSecond_ + offset_);
  }

 private:
  friend class PointBatch;

  double startS_ = 0.0;
  double perSecond_ = 0.0;
  double offset_ = 0.0;
  bool isStraight_ = true;
  float angle_ = 0.0F;    ///< between the orientations as four-dimensional vectors, 0 to pi / 2
  float perSine_ = 0.0F;  ///< 1 / sin(angle)
  /// Constant, q0 q0, q0 D, D D; of each the twelve elements, row by row.
  std::array<std::array<float, 12>, 4> motions_{};
};

/// A few points' coordinates, in arrays of their own, so that the loops over them use vector
/// instructions.
class PointBatch {
 public:
  static constexpr std::size_t kPoints = 64;

  /// Takes the coordinates of at most kPoints points.
  void load(std::span<const PointIRT> points);
  /// Puts them back, into as many points.
  void store(std::span<PointIRT> points) const;

  /// Adds `e` to the elevation of every point; range and azimuth stay. Points within a millimetre
  /// of the origin, and such as are not a number, are left alone.
  void elevate(float e);
  /// Moves every point by one motion.
  void move(const AffineMotion& motion);
  /// Moves every point by the motion of its own time.
  /// @param points  Those that were loaded.
  void move(const MotorArc& arc, std::span<const PointIRT> points);

 private:
  using Values = std::array<float, kPoints>;

  void elevateOddPoints(float e, const std::array<int, kPoints>& isOdd);

  std::size_t size_ = 0;
  std::size_t lanes_ = 0;  ///< size_ up to whole vectors; what is beyond size_ is of no use
  alignas(64) Values x_{};
  alignas(64) Values y_{};
  alignas(64) Values z_{};
};

}  // namespace morva

#endif  // MORVA_EXPORT_POINT_BATCH_H_
