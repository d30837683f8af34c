#include "kit/doctor/topic_times.h"

#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace morva::test {
namespace {

using doctor::Account;
using doctor::Message;

/// The account of one topic with messages at these times.
doctor::TopicAccount assess(const std::vector<std::int64_t>& timesUs) {
  Account account;
  for (const std::int64_t timeUs : timesUs) {
    Message message;
    message.offset = 100 * (1 + account.messages.size());
    message.header.topicId = 5;
    message.header.headerTimes[0] = timeUs;
    account.messages.push_back(message);
  }
  doctor::assessTimes(&account);
  return account.topics[5];
}

std::vector<std::int64_t> regular(std::size_t count, std::int64_t periodUs) {
  std::vector<std::int64_t> times;
  for (std::size_t i = 0; i < count; ++i) {
    times.push_back(1'000'000 + static_cast<std::int64_t>(i) * periodUs);
  }
  return times;
}

}  // namespace

TEST(TopicTimes, RegularTopicHasItsPeriodAndNothingToSay) {
  const auto topic = assess(regular(11, 1000));
  EXPECT_EQ(topic.periodUs, 1000);
  EXPECT_EQ(topic.firstUs, 1'000'000);
  EXPECT_EQ(topic.lastUs, 1'010'000);
  EXPECT_TRUE(topic.gaps.empty());
  EXPECT_TRUE(topic.stepsBack.empty());
}

TEST(TopicTimes, TooFewStepsHaveNoPeriod) { EXPECT_EQ(assess(regular(10, 1000)).periodUs, 0); }

TEST(TopicTimes, MoreThanThreePeriodsAreAGap) {
  for (const std::int64_t stepUs : {3000, 3001, 5400}) {
    auto times = regular(20, 1000);
    for (std::size_t i = 10; i < times.size(); ++i) times[i] += stepUs - 1000;
    const auto topic = assess(times);
    if (stepUs == 3000) {
      EXPECT_TRUE(topic.gaps.empty());
      continue;
    }
    ASSERT_EQ(topic.gaps.size(), 1U) << stepUs;
    EXPECT_EQ(topic.gaps[0].fromUs, 1'009'000);
    EXPECT_EQ(topic.gaps[0].toUs, 1'009'000 + stepUs);
    EXPECT_EQ(topic.gaps[0].missing, stepUs == 3001 ? 2U : 4U);
  }
}

TEST(TopicTimes, IrregularTopicHasNoGaps) {
  std::vector<std::int64_t> times = {0};
  for (std::int64_t i = 1; i < 30; ++i) times.push_back(times.back() + i * i * 100);
  const auto topic = assess(times);
  EXPECT_EQ(topic.periodUs, 0);
  EXPECT_TRUE(topic.gaps.empty());
}

TEST(TopicTimes, MessagesOfOneTimeHaveNoPeriod) {
  EXPECT_EQ(assess(std::vector<std::int64_t>(20, 7)).periodUs, 0);
}

TEST(TopicTimes, StepBackIsNotedWithItsPlace) {
  const auto topic = assess({100, 300, 200, 400});
  ASSERT_EQ(topic.stepsBack.size(), 1U);
  EXPECT_EQ(topic.stepsBack[0].offset, 300U);
  EXPECT_EQ(topic.stepsBack[0].fromUs, 300);
  EXPECT_EQ(topic.stepsBack[0].toUs, 200);
  EXPECT_EQ(topic.firstUs, 100);
  EXPECT_EQ(topic.lastUs, 400);
}

TEST(TopicTimes, AnyTimesAreTaken) {
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  auto times = regular(20, 1000);
  times.insert(times.end(), {kMin, kMax, kMin, kMax});
  const auto topic = assess(times);
  EXPECT_EQ(topic.firstUs, kMin);
  EXPECT_EQ(topic.lastUs, kMax);
  EXPECT_EQ(topic.stepsBack.size(), 2U);
  EXPECT_EQ(topic.gaps.size(), 2U);
  EXPECT_GT(topic.gaps[0].missing, 1'000'000'000U);
}

}  // namespace morva::test
