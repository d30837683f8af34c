#include "kit/simulate/world.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include "kit/simulate/random.h"

using Eigen::Matrix3d;
using Eigen::Vector3d;
using morva::sim::Box;
using morva::sim::Hit;
using morva::sim::Random;
using morva::sim::Surface;
using morva::sim::World;

namespace {

Surface plane(const Vector3d& normal, double offset) {
  Surface surface;
  surface.normal = normal;
  surface.offset = offset;
  surface.axisU = normal.unitOrthogonal();
  surface.axisV = normal.cross(surface.axisU);
  return surface;
}

// A cube of 2 m around the origin; planes 0 to 5 are x = -1, x = 1, y = -1, ...
World cube() {
  World world;
  for (int axis = 0; axis < 3; ++axis) {
    world.addPlane(plane(Vector3d::Unit(axis), -1.0));
    world.addPlane(plane(-Vector3d::Unit(axis), -1.0));
  }
  return world;
}

World room(std::uint64_t seed) {
  Random random(seed, "world");
  return World::makeRoom(&random);
}

// Distance from a point to the box, negative inside: no formula of ray casting in it.
double distanceTo(const Box& box, const Vector3d& point) {
  const Vector3d beyond =
      (box.worldFromBox.transpose() * (point - box.center)).cwiseAbs() - box.halfSize;
  return beyond.cwiseMax(0.0).norm() + std::min(beyond.maxCoeff(), 0.0);
}

double freeSpaceAround(const World& world, const Vector3d& point) {
  double nearest = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < world.planeCount(); ++i) {
    const Surface& surface = world.surfaces()[i];
    nearest = std::min(nearest, surface.normal.dot(point) - surface.offset);
  }
  for (const Box& box : world.boxes()) nearest = std::min(nearest, distanceTo(box, point));
  return nearest;
}

// Walks along the ray, each time as far as nothing can be in the way.
double marchedDistance(const World& world, const Vector3d& origin, const Vector3d& direction) {
  double distance = 0.0;
  for (int step = 0; step < 100'000; ++step) {
    const double space = freeSpaceAround(world, origin + distance * direction);
    if (space < 1e-9) return distance;
    distance += space;
  }
  return distance;
}

Vector3d anyDirection(Random* random) {
  Vector3d direction(random->gaussian(), random->gaussian(), random->gaussian());
  return direction.normalized();
}

Vector3d anyFreePoint(const World& world, Random* random) {
  for (;;) {
    Vector3d point(random->uniform(-4.5, 4.5), random->uniform(-3.5, 3.5),
                   random->uniform(0.05, 2.8));
    if (freeSpaceAround(world, point) > 0.01) return point;
  }
}

}  // namespace

TEST(WorldCast, MeetsTheWallThatTheRayRunsTowards) {
  const World world = cube();
  for (int axis = 0; axis < 3; ++axis) {
    const Hit down = world.cast(Vector3d::Zero(), -Vector3d::Unit(axis));
    EXPECT_DOUBLE_EQ(down.distance, 1.0);
    EXPECT_EQ(down.surface, 2 * axis);
    const Hit up = world.cast(Vector3d::Zero(), Vector3d::Unit(axis));
    EXPECT_DOUBLE_EQ(up.distance, 1.0);
    EXPECT_EQ(up.surface, 2 * axis + 1);
  }
}

TEST(WorldCast, MeasuresInLengthsOfTheDirection) {
  EXPECT_DOUBLE_EQ(cube().cast(Vector3d(0.5, 0.0, 0.0), Vector3d(0.25, 0.0, 0.0)).distance, 2.0);
}

TEST(WorldCast, MeetsTheFaceOfABoxThatLooksAtTheOrigin) {
  World world = cube();
  Box box;
  box.center << 0.5, 0.0, 0.0;
  box.halfSize << 0.1, 0.2, 0.3;
  box.worldFromBox.setIdentity();
  world.addBox(box, 0.5, 0.0, 0.0);
  const Hit front = world.cast(Vector3d::Zero(), Vector3d::UnitX());
  EXPECT_DOUBLE_EQ(front.distance, 0.4);
  EXPECT_EQ(front.surface, 6);  // -x
  const Hit top = world.cast(Vector3d(0.5, 0.0, 0.9), -Vector3d::UnitZ());
  EXPECT_NEAR(top.distance, 0.6, 1e-15);
  EXPECT_EQ(top.surface, 11);                                                // +z
  const Hit past = world.cast(Vector3d(0.0, 0.21, 0.0), Vector3d::UnitX());  // just beside it
  EXPECT_DOUBLE_EQ(past.distance, 1.0);
  const Hit away = world.cast(Vector3d(0.7, 0.0, 0.0), Vector3d::UnitX());  // it lies behind
  EXPECT_NEAR(away.distance, 0.3, 1e-15);
}

TEST(WorldCast, AgreesWithMarchingThroughFreeSpace) {
  for (std::uint64_t seed = 1; seed <= 3; ++seed) {
    const World world = room(seed);
    Random random(seed, "rays");
    for (int i = 0; i < 150; ++i) {
      const Vector3d origin = anyFreePoint(world, &random);
      const Vector3d direction = anyDirection(&random);
      // Marching stops within 1e-9 m of a surface; a ray along a surface is longer in between.
      const double marched = marchedDistance(world, origin, direction);
      const Hit hit = world.cast(origin, direction);
      ASSERT_GE(hit.surface, 0);
      const double facing =
          std::abs(world.surfaces()[static_cast<std::size_t>(hit.surface)].normal.dot(direction));
      if (facing < 1e-3) continue;
      ASSERT_NEAR(hit.distance, marched, 2e-6) << "seed " << seed << ", ray " << i;
    }
  }
}

TEST(WorldCast, NamesTheSurfaceThatHoldsThePoint) {
  const World world = room(1);
  Random random(5, "rays");
  for (int i = 0; i < 2000; ++i) {
    const Vector3d origin = anyFreePoint(world, &random);
    const Vector3d direction = anyDirection(&random);
    const Hit hit = world.cast(origin, direction);
    const Surface& found = world.surfaces().at(static_cast<std::size_t>(hit.surface));
    ASSERT_NEAR(found.normal.dot(origin + hit.distance * direction), found.offset, 1e-12);
    ASSERT_LT(found.normal.dot(direction), 0.0) << found.name << " is seen from behind";
    ASSERT_NEAR(found.distanceAlong(origin, direction), hit.distance, 1e-9);
  }
}

TEST(WorldCast, MeetsEveryFaceOfEveryBoxFromInFrontOfIt) {
  const World world = room(1);
  int faces = 0;
  for (std::size_t i = 0; i < world.boxes().size(); ++i) {
    const Box& box = world.boxes()[i];
    for (std::size_t face = 0; face < 6; ++face) {
      const std::size_t surface = world.planeCount() + 6 * i + face;
      const Vector3d normal = world.surfaces()[surface].normal;
      const double half = box.halfSize[static_cast<int>(face / 2)];
      const Vector3d origin = box.center + (half + 0.04) * normal;
      if (!world.isFree(origin)) continue;  // the underside of what stands on the floor
      const Hit hit = world.cast(origin, -normal);
      EXPECT_EQ(hit.surface, static_cast<int>(surface));
      EXPECT_NEAR(hit.distance, 0.04, 1e-12);
      ++faces;
    }
  }
  EXPECT_EQ(faces, 5 * 6 - 4);
}

TEST(WorldRoom, HasSixNamedPlanesAndFiveBoxes) {
  const World world = room(1);
  EXPECT_EQ(world.planeCount(), 6U);
  EXPECT_EQ(world.boxes().size(), 5U);
  EXPECT_EQ(world.surfaces().size(), 6U + 5U * 6U);
  for (const Surface& surface : world.surfaces()) {
    EXPECT_FALSE(surface.name.empty());
    EXPECT_NEAR(surface.normal.norm(), 1.0, 1e-12);
    EXPECT_NEAR(surface.axisU.dot(surface.normal), 0.0, 1e-12);
    EXPECT_NEAR(surface.axisV.dot(surface.normal), 0.0, 1e-12);
  }
}

TEST(WorldRoom, StandsOtherwiseForAnotherSeed) {
  EXPECT_EQ(room(1).boxes()[0].center, room(1).boxes()[0].center);
  EXPECT_NE(room(1).boxes()[0].center, room(2).boxes()[0].center);
}

TEST(WorldIsFree, IsFalseOutsideTheRoomAndInBoxes) {
  const World world = room(1);
  EXPECT_TRUE(world.isFree({1.9, -0.8, 1.4}));
  EXPECT_FALSE(world.isFree({0.0, 0.0, -0.01}));
  EXPECT_FALSE(world.isFree({9.0, 0.0, 1.0}));
  EXPECT_FALSE(world.isFree(world.boxes()[2].center));
}

TEST(SurfaceReflectivity, IsAChequeredPattern) {
  Surface surface = plane(Vector3d::UnitZ(), 0.0);
  surface.axisU = Vector3d::UnitX();
  surface.axisV = Vector3d::UnitY();
  surface.reflectivity = 0.8;
  EXPECT_DOUBLE_EQ(surface.reflectivityAt({0.1, 0.1, 0.0}), 0.8);
  EXPECT_LT(surface.reflectivityAt({0.6, 0.1, 0.0}), 0.5);
  EXPECT_DOUBLE_EQ(surface.reflectivityAt({0.6, 0.6, 0.0}), 0.8);
  EXPECT_LT(surface.reflectivityAt({-0.1, 0.1, 0.0}), 0.5);
}
