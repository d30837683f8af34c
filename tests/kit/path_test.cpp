#include "kit/simulate/path.h"

#include <cmath>

#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include "kit/simulate/motor.h"
#include "kit/simulate/options.h"
#include "kit/simulate/random.h"
#include "kit/simulate/scene.h"

using Eigen::Isometry3d;
using Eigen::Matrix3d;
using Eigen::Vector3d;
using morva::sim::kGravity;
using morva::sim::Motion;
using morva::sim::Path;
using morva::sim::Random;

namespace {

constexpr double kStepS = 1e-4;

Path walk(std::uint64_t seed = 1) {
  Random random(seed, "path");
  return Path::makeWalk(&random);
}

// Central differences of the pose alone. Their error is the third derivative times kStepS^2 / 6:
// for the fastest wave (2 Hz, 1.5 cm or 0.015 rad) below 1e-6; rounding adds 1e-16 / kStepS^2 =
// 1e-8.
Vector3d velocityBetweenPoses(const Path& path, double timeS) {
  return (path.poseAt(timeS + kStepS).translation() - path.poseAt(timeS - kStepS).translation()) /
         (2.0 * kStepS);
}

Vector3d accelerationBetweenPoses(const Path& path, double timeS) {
  return (path.poseAt(timeS + kStepS).translation() - 2.0 * path.poseAt(timeS).translation() +
          path.poseAt(timeS - kStepS).translation()) /
         (kStepS * kStepS);
}

Vector3d angularRateBetweenPoses(const Path& path, double timeS) {
  const Matrix3d turn =
      path.poseAt(timeS - kStepS).linear().transpose() * path.poseAt(timeS + kStepS).linear();
  const Eigen::AngleAxisd angleAxis(turn);
  return angleAxis.angle() * angleAxis.axis() / (2.0 * kStepS);
}

}  // namespace

TEST(PathMotion, DerivativesAgreeWithDifferencesOfPoses) {
  const Path path = walk();
  for (double timeS = -0.5; timeS < 20.0; timeS += 0.173) {
    const Motion motion = path.motionAt(timeS);
    EXPECT_LT((motion.velocity - velocityBetweenPoses(path, timeS)).norm(), 2e-6);
    EXPECT_LT((motion.acceleration - accelerationBetweenPoses(path, timeS)).norm(), 5e-6);
    EXPECT_LT((motion.angularRate - angularRateBetweenPoses(path, timeS)).norm(), 2e-6);
  }
}

TEST(PathMotion, PoseIsThatOfPoseAt) {
  const Path path = walk();
  for (double timeS = 0.0; timeS < 16.0; timeS += 0.37) {
    EXPECT_TRUE(path.motionAt(timeS).worldFromImu.isApprox(path.poseAt(timeS), 1e-14));
  }
}

TEST(PathMotion, SpecificForceIsAccelerationLessGravityInTheImuFrame) {
  const Path path = walk();
  for (double timeS = 0.0; timeS < 16.0; timeS += 0.37) {
    const Motion motion = path.motionAt(timeS);
    const Vector3d expected = accelerationBetweenPoses(path, timeS) - Vector3d(0, 0, -kGravity);
    EXPECT_LT((motion.worldFromImu.linear() * motion.specificForce - expected).norm(), 5e-6);
  }
}

TEST(PathMotion, StandingStillFeelsGravityAlone) {
  const Motion motion = Path::makeStill().motionAt(3.0);
  EXPECT_EQ(motion.velocity, Vector3d::Zero());
  EXPECT_EQ(motion.angularRate, Vector3d::Zero());
  EXPECT_NEAR(motion.specificForce.norm(), kGravity, 1e-12);
  EXPECT_LT((motion.worldFromImu.linear() * motion.specificForce - Vector3d(0, 0, kGravity)).norm(),
            1e-12);
  EXPECT_TRUE(Path::makeStill().poseAt(0.0).isApprox(Path::makeStill().poseAt(100.0)));
}

TEST(PathWalk, IsClosed) {
  const Path path = walk();
  EXPECT_TRUE(path.poseAt(1.3).isApprox(path.poseAt(1.3 + Path::kPeriodS), 1e-12));
  EXPECT_TRUE(path.poseAt(1.3).isApprox(path.poseAt(1.3 + 10 * Path::kPeriodS), 1e-12));
}

TEST(PathWalk, GoesAtAWalkersPaceAndLooksAhead) {
  const Path path = walk();
  for (double timeS = 0.0; timeS < Path::kPeriodS; timeS += 0.1) {
    const Motion motion = path.motionAt(timeS);
    const double speed = motion.velocity.head<2>().norm();
    EXPECT_GT(speed, 0.3);
    EXPECT_LT(speed, 1.5);
    const Vector3d ahead = motion.worldFromImu.linear().col(0);
    EXPECT_GT(ahead.head<2>().normalized().dot(motion.velocity.head<2>()) / speed, 0.9);
  }
}

TEST(PathWalk, KeepsEverySensorInFreeSpaceForEverySeed) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    morva::sim::Options options;
    options.seed = seed;
    options.cameras = 7;
    for (const bool still : {false, true}) {
      options.still = still;
      const morva::sim::Scene scene = morva::sim::makeScene(options);
      for (double timeS = 0.0; timeS < Path::kPeriodS; timeS += 0.5) {
        const Isometry3d worldFromImu = scene.path.poseAt(timeS);
        ASSERT_TRUE(scene.world.isFree(worldFromImu.translation())) << seed << " " << timeS;
        ASSERT_TRUE(scene.world.isFree(scene.worldFromLidarAt(timeS).translation()));
        for (const auto& camera : scene.calibration.cameras) {
          ASSERT_TRUE(scene.world.isFree(worldFromImu * camera.imuFromCamera.translation()));
        }
      }
    }
  }
}

TEST(Motor, TurnsHalfATurnASecondOnAverage) {
  Random random(1, "motor");
  const morva::sim::Motor motor(&random);
  constexpr double kPi = 3.14159265358979323846;
  EXPECT_NEAR((motor.angleAt(10.0) - motor.angleAt(0.0)) / (20.0 * kPi), 0.5, 1e-9);
  for (double timeS = 0.0; timeS < 2.0; timeS += 0.01) {
    const double rate = (motor.angleAt(timeS + 1e-4) - motor.angleAt(timeS)) / 1e-4;
    EXPECT_NEAR(rate, kPi, 0.2);  // the ripple is 2 pi 1.3 Hz * 0.02 rad = 0.16 rad/s
  }
}

TEST(Motor, TurnsAroundItsZAxis) {
  Random random(1, "motor");
  const morva::sim::Motor motor(&random);
  const Matrix3d rotation = motor.rotationAt(1.7);
  EXPECT_TRUE((rotation * Vector3d::UnitZ()).isApprox(Vector3d::UnitZ()));
  const Vector3d turned = rotation * Vector3d::UnitX();
  EXPECT_NEAR(std::remainder(std::atan2(turned.y(), turned.x()) - motor.angleAt(1.7),
                             2.0 * 3.14159265358979323846),
              0.0, 1e-12);
}
