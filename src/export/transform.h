#ifndef MORVA_EXPORT_TRANSFORM_H_
#define MORVA_EXPORT_TRANSFORM_H_

#include <Eigen/Core>

namespace morva {

/// Inverts a homogeneous transform, in double precision.
/// @param inverse  [out, not null] Unchanged on failure.
/// @return False when the transform is singular within single precision, or an element of it or of
/// its
///         inverse is not finite.
[[nodiscard]] bool invertTransform(const Eigen::Matrix4f& transform, Eigen::Matrix4d* inverse);

/// True when the determinant of `rotation` is within 0.001 of 1.
[[nodiscard]] bool isRigid(const Eigen::Matrix3f& rotation);

}  // namespace morva

#endif  // MORVA_EXPORT_TRANSFORM_H_
