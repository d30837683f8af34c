#include "export/motor_brackets.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace morva {
namespace {

using Motors = std::vector<std::shared_ptr<MotorMsg>>;

Motors motorsAt(const std::vector<double>& times) {
  Motors motors;
  for (const double time : times) {
    motors.push_back(std::make_shared<MotorMsg>());
    motors.back()->time = time;
  }
  return motors;
}

/// The plain search.
void expectFound(const MotorBrackets::Bracket& bracket, const Motors& motors, double time) {
  const auto found = std::ranges::lower_bound(motors, time, {}, &MotorMsg::time);
  const auto next = static_cast<std::size_t>(found - motors.begin());
  const bool isFirst = next == 0 && time == motors.front()->time;
  ASSERT_EQ(bracket.isFound, isFirst || (next > 0 && next < motors.size())) << time;
  if (!bracket.isFound) return;
  EXPECT_EQ(bracket.second, next) << time;
  EXPECT_EQ(bracket.first, isFirst ? 0 : next - 1) << time;
}

TEST(MotorBrackets, AreThoseOfABinarySearchForTimesInAnyOrder) {
  std::mt19937 random(3);
  for (int round = 0; round < 200; ++round) {
    // Whole numbers, so that times are repeated and met exactly.
    std::vector<double> times(1 + random() % 30);
    for (double& time : times) time = static_cast<double>(random() % 40);
    const bool isSorted = round % 4 != 0;
    if (isSorted) std::ranges::sort(times);
    if (round % 16 == 0) times[random() % times.size()] = std::nan("");
    const Motors motors = motorsAt(times);
    MotorBrackets brackets(motors);
    double time = -1.0;
    for (int i = 0; i < 300; ++i) {
      time = random() % 8 == 0 ? static_cast<double>(random() % 84) / 2 - 1  // anywhere
                               : time + 0.25 * static_cast<double>(random() % 3);
      expectFound(brackets.find(time), motors, time);
    }
    expectFound(brackets.find(std::nan("")), motors, std::nan(""));
  }
}

TEST(MotorBrackets, HoldTheTimesForWhichTheyWouldBeFound) {
  const Motors motors = motorsAt({1.0, 2.0, 2.0, 3.0});
  MotorBrackets brackets(motors);
  for (const double time : {0.5, 1.0, 1.5, 2.0, 2.5, 3.0, 3.5, std::nan("")}) {
    const MotorBrackets::Bracket bracket = brackets.find(time);
    for (const double other : {0.5, 1.0, 1.5, 2.0, 2.5, 3.0, 3.5, std::nan("")}) {
      if (!bracket.holds(other)) continue;
      const MotorBrackets::Bracket ofOther = MotorBrackets(motors).find(other);
      EXPECT_TRUE(bracket.isFound && ofOther.isFound);
      EXPECT_EQ(bracket.second, ofOther.second) << time << " " << other;
    }
  }
  EXPECT_TRUE(brackets.find(1.5).holds(2.0));
  EXPECT_FALSE(brackets.find(1.5).holds(1.0));
}

}  // namespace
}  // namespace morva
