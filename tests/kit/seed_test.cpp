// What a seed stands for is the same with every compiler and on every processor.
#include <gtest/gtest.h>

#include "kit/simulate/calibration.h"
#include "kit/simulate/random.h"
#include "kit/simulate/simulate.h"
#include "kit/simulate/world.h"

namespace morva::sim {
namespace {

constexpr double kRounding = 1e-12;

TEST(Seed, OneStandsForThisRoom) {
  Random random(1, "world");
  const World world = World::makeRoom(&random);
  const Box& table = world.boxes().front();
  EXPECT_NEAR(table.center.x(), 0.09158317671441207, kRounding);
  EXPECT_NEAR(table.center.y(), 0.08380296252881281, kRounding);
  EXPECT_NEAR(table.worldFromBox(0, 1), 0.4055127461462506, kRounding);
}

TEST(Seed, OneStandsForThisCalibration) {
  Random random(1, "calibration");
  const Calibration calibration = makeCalibration(Options{}, &random);
  const Eigen::Isometry3d& lidar = calibration.motorFromLidar;
  EXPECT_NEAR(lidar(0, 3), 0.030296354837207124, kRounding);
  EXPECT_NEAR(lidar(0, 0), 0.09726462430041294, kRounding);
  EXPECT_NEAR(lidar(1, 0), 0.014182594381369061, kRounding);
  const Eigen::Isometry3d& motor = calibration.imuFromMotor;
  EXPECT_NEAR(motor(2, 3), 0.15644469121357052, kRounding);
  EXPECT_NEAR(motor(0, 0), 0.8557965547507109, kRounding);
  EXPECT_NEAR(motor(1, 0), 0.49562975178359353, kRounding);
}

}  // namespace
}  // namespace morva::sim
