#include "kit/simulate/world.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include <Eigen/Geometry>

namespace morva::sim {

namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kFieldM = 0.5;           // side of a field of the pattern
constexpr double kDarkFieldShare = 0.55;  // of the bright fields' reflectivity

Matrix3d turnedUp(double yawRad) {
  return Eigen::AngleAxisd(yawRad, Vector3d::UnitZ()).toRotationMatrix();
}

// The six boundaries of the room. Walls stand 4.8 m and 3.8 m from the middle, one of them askew;
// the ceiling slopes.
struct Wall {
  const char* name;
  Vector3d inward;  // need not be of unit length
  Vector3d point;
  double reflectivity, blueness, redness;
};

std::vector<Wall> wallsOfRoom() {
  const Matrix3d room = turnedUp(0.2);
  return {
      {"floor", Vector3d::UnitZ(), Vector3d::Zero(), 0.45, -0.15, 0.10},
      {"ceiling", Vector3d(0.04, -0.02, -1.0), Vector3d(0.0, 0.0, 3.0), 0.90, 0.0, 0.0},
      {"wall_east", -room.col(0), 4.8 * room.col(0), 0.75, 0.10, -0.05},
      {"wall_west", room * turnedUp(0.09).col(0), -4.8 * room.col(0), 0.70, -0.10, 0.12},
      {"wall_north", -room.col(1), 3.8 * room.col(1), 0.80, 0.02, -0.10},
      {"wall_south", room.col(1), -3.8 * room.col(1), 0.65, -0.12, 0.02},
  };
}

// The boxes leave the scanner's way around the table free.
struct Furniture {
  const char* name;
  Vector3d center, halfSize;
  double reflectivity, blueness, redness;
};

const std::array<Furniture, 5>& furniture() {
  static const std::array<Furniture, 5> kFurniture = {{
      {"table", {0.0, 0.0, 0.40}, {0.50, 0.35, 0.40}, 0.60, -0.25, 0.20},
      {"cabinet", {3.7, 0.5, 1.00}, {0.35, 0.50, 1.00}, 0.35, 0.25, -0.15},
      {"crate", {-3.2, -2.4, 0.30}, {0.30, 0.30, 0.30}, 0.50, -0.30, 0.05},
      {"column", {-1.2, 2.9, 1.40}, {0.20, 0.20, 1.40}, 0.85, 0.05, 0.25},
      {"duct", {0.5, -2.8, 2.50}, {1.20, 0.20, 0.20}, 0.25, 0.15, 0.0},
  }};
  return kFurniture;
}

Surface makeSurface(std::string name, const Vector3d& normal, const Vector3d& point) {
  Surface surface;
  surface.name = std::move(name);
  surface.normal = normal.normalized();
  surface.offset = surface.normal.dot(point);
  surface.axisU = surface.normal.unitOrthogonal();
  surface.axisV = surface.normal.cross(surface.axisU);
  return surface;
}

struct BoxHit {
  double distance = kInfinity;
  int face = -1;  // -x, +x, -y, +y, -z, +z
};

// Whether the line of the ray comes near enough to meet the box: most do not, and this is quick.
bool mayMeet(const Box& box, const Vector3d& origin, const Vector3d& direction) {
  const Vector3d toCenter = box.center - origin;
  const double along = toCenter.dot(direction);
  const double length2 = direction.squaredNorm();
  return toCenter.squaredNorm() * length2 - along * along <= box.halfSize.squaredNorm() * length2;
}

// The slab method, in the box's own axes: the ray is in the box where it is in all three slabs.
BoxHit castOnBox(const Box& box, const Vector3d& origin, const Vector3d& direction) {
  const Vector3d from = box.worldFromBox.transpose() * (origin - box.center);
  const Vector3d along = box.worldFromBox.transpose() * direction;
  BoxHit enter{-kInfinity, -1};
  double leave = kInfinity;
  for (int axis = 0; axis < 3; ++axis) {
    const double half = box.halfSize[axis];
    if (along[axis] == 0.0) {
      if (std::abs(from[axis]) > half) return {};
      continue;
    }
    const double first = along[axis] > 0.0 ? -half : half;
    const double distance = (first - from[axis]) / along[axis];
    if (distance > enter.distance) enter = {distance, 2 * axis + (along[axis] > 0.0 ? 0 : 1)};
    leave = std::min(leave, (-first - from[axis]) / along[axis]);
  }
  if (enter.distance > leave || enter.distance <= 0.0) return {};
  return enter;
}

}  // namespace

double Surface::distanceAlong(const Vector3d& origin, const Vector3d& direction) const {
  return (offset - normal.dot(origin)) / normal.dot(direction);
}

double Surface::reflectivityAt(const Vector3d& point) const {
  // Far enough to make every field's number positive, so that cutting off is rounding down.
  constexpr double kFarFields = 1 << 20;
  const auto u = static_cast<std::int64_t>(axisU.dot(point) / kFieldM + kFarFields);
  const auto v = static_cast<std::int64_t>(axisV.dot(point) / kFieldM + kFarFields);
  const bool isDark = (u + v) % 2 != 0;
  return isDark ? reflectivity * kDarkFieldShare : reflectivity;
}

World World::makeRoom(Random* random) {
  World world;
  for (const Wall& wall : wallsOfRoom()) {
    Surface plane = makeSurface(wall.name, wall.inward, wall.point);
    plane.reflectivity = wall.reflectivity;
    plane.blueness = wall.blueness;
    plane.redness = wall.redness;
    world.addPlane(plane);
  }
  for (const Furniture& item : furniture()) {
    // One number a statement, y first: the order of arguments would be the compiler's.
    Vector3d moved = Vector3d::Zero();
    moved.y() = random->uniform(-0.1, 0.1);
    moved.x() = random->uniform(-0.1, 0.1);
    const Box box{item.name, item.center + moved, item.halfSize,
                  turnedUp(random->uniform(-0.5, 0.5))};
    world.addBox(box, item.reflectivity, item.blueness, item.redness);
  }
  return world;
}

void World::addPlane(const Surface& plane) {
  assert(boxes_.empty());  // planes come before the faces of boxes
  surfaces_.push_back(plane);
}

void World::addBox(const Box& box, double reflectivity, double blueness, double redness) {
  static constexpr std::array<const char*, 6> kFaceNames = {"-x", "+x", "-y", "+y", "-z", "+z"};
  for (int face = 0; face < 6; ++face) {
    const int axis = face / 2;
    const double sign = face % 2 == 0 ? -1.0 : 1.0;
    const Vector3d normal = sign * box.worldFromBox.col(axis);
    Surface surface = makeSurface(box.name + kFaceNames[static_cast<std::size_t>(face)], normal,
                                  box.center + box.halfSize[axis] * normal);
    surface.reflectivity = reflectivity;
    surface.blueness = blueness;
    surface.redness = redness;
    surfaces_.push_back(surface);
  }
  boxes_.push_back(box);
}

Hit World::cast(const Vector3d& origin, const Vector3d& direction) const {
  Hit hit{kInfinity, -1};
  // The room is convex: the ray leaves it through the first of the planes that it runs towards.
  const int planes = static_cast<int>(planeCount());
  for (int i = 0; i < planes; ++i) {
    const Surface& plane = surfaces_[static_cast<std::size_t>(i)];
    const double approach = plane.normal.dot(direction);
    if (approach >= 0.0) continue;
    const double distance = (plane.offset - plane.normal.dot(origin)) / approach;
    if (distance < hit.distance) hit = {distance, i};
  }
  for (std::size_t i = 0; i < boxes_.size(); ++i) {
    if (!mayMeet(boxes_[i], origin, direction)) continue;
    const BoxHit boxHit = castOnBox(boxes_[i], origin, direction);
    if (boxHit.distance < hit.distance) {
      hit = {boxHit.distance, planes + static_cast<int>(6 * i) + boxHit.face};
    }
  }
  return hit;
}

bool World::isFree(const Vector3d& point) const {
  for (std::size_t i = 0; i < planeCount(); ++i) {
    if (surfaces_[i].normal.dot(point) <= surfaces_[i].offset) return false;
  }
  for (const Box& box : boxes_) {
    const Vector3d local = box.worldFromBox.transpose() * (point - box.center);
    if ((local.cwiseAbs().array() <= box.halfSize.array()).all()) return false;
  }
  return true;
}

}  // namespace morva::sim
