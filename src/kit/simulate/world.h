#ifndef MORVA_KIT_SIMULATE_WORLD_H_
#define MORVA_KIT_SIMULATE_WORLD_H_

#include <string>
#include <vector>

#include <Eigen/Core>

#include "kit/simulate/random.h"

namespace morva::sim {

/// A flat surface with its pattern. World frame: x east, y north, z up; metres; the origin is on
/// the floor, in the middle of the room.
struct Surface {
  std::string name;
  Eigen::Vector3d normal;  ///< unit length, towards the side that can be seen
  double offset = 0.0;     ///< normal . p of every point p of its plane
  Eigen::Vector3d axisU;   ///< the pattern's axes, in the plane, unit length
  Eigen::Vector3d axisV;
  double reflectivity = 0.5;  ///< of the pattern's bright fields, 0 to 1
  double blueness = 0.0;      ///< colour difference to blue, -1 to 1
  double redness = 0.0;       ///< colour difference to red, -1 to 1

  /// Where the ray origin + s * direction meets the plane. @return s, perhaps negative or not
  /// finite.
  [[nodiscard]] double distanceAlong(const Eigen::Vector3d& origin,
                                     const Eigen::Vector3d& direction) const;
  /// Reflectivity at a point of the plane: a chequered pattern, 0 to 1.
  [[nodiscard]] double reflectivityAt(const Eigen::Vector3d& point) const;
};

/// A solid box, turned around the vertical axis.
struct Box {
  std::string name;
  Eigen::Vector3d center;
  Eigen::Vector3d halfSize;
  Eigen::Matrix3d worldFromBox;  ///< rotation
};

/// What a ray meets first.
struct Hit {
  double distance = 0.0;  ///< in lengths of the direction; infinite when nothing is met
  int surface = -1;       ///< index into surfaces(), -1 for nothing
};

/// A closed room: a convex space between planes, with boxes in it.
class World {
 public:
  /// @param random  Moves and turns the boxes a little.
  [[nodiscard]] static World makeRoom(Random* random);

  /// Adds a boundary: the room lies where normal . p >= offset.
  void addPlane(const Surface& plane);
  void addBox(const Box& box, double reflectivity, double blueness, double redness);

  /// The first surface on a ray, exactly. @param origin  Inside the room and outside the boxes.
  [[nodiscard]] Hit cast(const Eigen::Vector3d& origin, const Eigen::Vector3d& direction) const;
  /// True inside the room and outside every box.
  [[nodiscard]] bool isFree(const Eigen::Vector3d& point) const;

  /// The planes in the order in which they were added, then six faces a box: -x, +x, -y, +y, -z,
  /// +z.
  [[nodiscard]] const std::vector<Surface>& surfaces() const { return surfaces_; }
  [[nodiscard]] std::size_t planeCount() const { return surfaces_.size() - 6 * boxes_.size(); }
  [[nodiscard]] const std::vector<Box>& boxes() const { return boxes_; }

 private:
  std::vector<Surface> surfaces_;
  std::vector<Box> boxes_;
};

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_WORLD_H_
