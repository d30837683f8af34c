#include "export/transform.h"

#include <cmath>
#include <limits>

#include <Eigen/LU>

namespace morva {

bool invertTransform(const Eigen::Matrix4f& transform, Eigen::Matrix4d* inverse) {
  if (!transform.allFinite()) return false;
  Eigen::FullPivLU<Eigen::Matrix4d> decomposition(transform.cast<double>());
  decomposition.setThreshold(std::numeric_limits<float>::epsilon());
  if (!decomposition.isInvertible()) return false;
  const Eigen::Matrix4d result = decomposition.inverse();
  if (!result.cast<float>().allFinite()) return false;
  *inverse = result;
  return true;
}

bool isRigid(const Eigen::Matrix3f& rotation) {
  constexpr double kTolerance = 0.001;
  return std::abs(static_cast<double>(rotation.determinant()) - 1.0) <= kTolerance;
}

}  // namespace morva
