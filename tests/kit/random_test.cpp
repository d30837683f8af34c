#include "kit/simulate/random.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>

#include <gtest/gtest.h>

using morva::sim::Random;

TEST(Random, GivesTheSameNumbersForTheSameSeedStreamAndNumber) {
  Random first(7, "lidar", 3);
  Random second(7, "lidar", 3);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(first.uniform(), second.uniform());
}

TEST(Random, GivesOtherNumbersForAnotherSeedStreamOrNumber) {
  const double value = Random(7, "lidar", 3).uniform();
  EXPECT_NE(Random(8, "lidar", 3).uniform(), value);
  EXPECT_NE(Random(7, "lidars", 3).uniform(), value);
  EXPECT_NE(Random(7, "lidar", 4).uniform(), value);
}

TEST(Random, StartsItsEngineFromTheMixedSeed) {
  // SplitMix64 and FNV-1a, calculated apart: recordings of a seed must not change between versions.
  std::mt19937_64 engine(0xDECAA1B54CC53827U);
  Random random(1, "world");
  EXPECT_EQ(random.uniform(), std::ldexp(static_cast<double>(engine() >> 11U), -53));
}

TEST(Random, DrawsUniformNumbersFromTheWholeRange) {
  Random random(1, "uniform");
  double sum = 0.0;
  double smallest = 1.0;
  double largest = 0.0;
  constexpr int kDraws = 100'000;
  for (int i = 0; i < kDraws; ++i) {
    const double value = random.uniform(-3.0, 5.0);
    sum += value;
    smallest = std::min(smallest, value);
    largest = std::max(largest, value);
  }
  EXPECT_GE(smallest, -3.0);
  EXPECT_LT(largest, 5.0);
  EXPECT_LT(smallest, -2.99);
  EXPECT_GT(largest, 4.99);
  EXPECT_NEAR(sum / kDraws, 1.0, 0.03);  // four standard deviations of the mean
}

TEST(Random, DrawsGaussianNumbersOfMeanZeroAndDeviationOne) {
  Random random(1, "gaussian");
  constexpr int kDraws = 100'000;
  double sum = 0.0;
  double squares = 0.0;
  int beyondTwo = 0;
  for (int i = 0; i < kDraws; ++i) {
    const double value = random.gaussian();
    ASSERT_TRUE(std::isfinite(value));
    sum += value;
    squares += value * value;
    if (std::abs(value) > 2.0) ++beyondTwo;
  }
  // Four standard deviations each.
  EXPECT_NEAR(sum / kDraws, 0.0, 0.013);
  EXPECT_NEAR(squares / kDraws, 1.0, 0.018);
  EXPECT_NEAR(static_cast<double>(beyondTwo) / kDraws, 0.0455, 0.0027);
}

TEST(Random, DrawsEveryNumberBelowTheBoundEquallyOften) {
  Random random(1, "below");
  std::array<int, 7> counts{};
  constexpr int kDraws = 70'000;
  for (int i = 0; i < kDraws; ++i) ++counts.at(random.below(counts.size()));
  for (const int count : counts) EXPECT_NEAR(count, 10'000, 400);
  EXPECT_EQ(random.below(1), 0U);
}

TEST(Random, DrawsBytesOfEveryValue) {
  const std::string bytes = Random(1, "bytes").bytes(20'000);
  std::array<int, 256> counts{};
  for (const char c : bytes) ++counts.at(static_cast<std::uint8_t>(c));
  for (const int count : counts) EXPECT_GT(count, 20);
}
