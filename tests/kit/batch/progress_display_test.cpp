#include "kit/batch/progress_display.h"

#include <gtest/gtest.h>

namespace morva::batch {
namespace {

constexpr std::int64_t kSecond = 1000000;

TEST(ProgressDisplay, LineHasPercentRateAndTimeLeft) {
  ProjectState state;
  state.name = "p1";
  state.bagBytes = 2'000'000'000;
  state.phase = Phase::kUnpacking;
  state.startUs = 100 * kSecond;
  state.percent = 25;
  EXPECT_EQ(ProgressDisplay::describe(state, 105 * kSecond),
            "p1: unpacking 25 %, 100.0 MB/s, 0:15 left");
}

TEST(ProgressDisplay, BeforeTheFirstPercentThereIsNothingToReckonWith) {
  ProjectState state;
  state.name = "p1";
  state.phase = Phase::kChecking;
  EXPECT_EQ(ProgressDisplay::describe(state, kSecond), "p1: checking 0 %");
}

TEST(ProgressDisplay, LongTimesAreInHours) {
  ProjectState state;
  state.name = "p1";
  state.phase = Phase::kChecking;
  state.percent = 1;
  EXPECT_EQ(ProgressDisplay::describe(state, 100 * kSecond),
            "p1: checking 1 %, 0.0 MB/s, 2:45:00 left");
}

}  // namespace
}  // namespace morva::batch
