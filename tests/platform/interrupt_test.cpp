#include "platform/interrupt.h"

#include <csignal>

#include <gtest/gtest.h>

namespace morva::test {
namespace {

using osmik::Interrupt;

class InterruptSignal : public testing::TestWithParam<int> {};

TEST_P(InterruptSignal, FirstSignalIsNotedOnly) {
  const Interrupt interrupt;
  EXPECT_FALSE(Interrupt::requested());
  std::raise(GetParam());
  EXPECT_TRUE(Interrupt::requested());
}

TEST_P(InterruptSignal, NewObjectForgetsTheSignalOfAnEarlierOne) {
  {
    const Interrupt interrupt;
    std::raise(GetParam());
  }
  const Interrupt interrupt;
  EXPECT_FALSE(Interrupt::requested());
}

TEST_P(InterruptSignal, SecondSignalEndsTheProgram) {
  const auto raiseTwice = [] {
    const Interrupt interrupt;
    std::raise(GetParam());
    std::raise(GetParam());
  };
  EXPECT_EXIT(raiseTwice(), testing::KilledBySignal(GetParam()), "");
}

TEST_P(InterruptSignal, WhatWasBeforeIsBackInTheEnd) {
  { const Interrupt interrupt; }
  EXPECT_EXIT(std::raise(GetParam()), testing::KilledBySignal(GetParam()), "");
}

TEST_P(InterruptSignal, IgnoredSignalStaysIgnored) {
  auto* const before = std::signal(GetParam(), SIG_IGN);
  {
    const Interrupt interrupt;
    std::raise(GetParam());
    EXPECT_FALSE(Interrupt::requested());
  }
  std::signal(GetParam(), before);
}

INSTANTIATE_TEST_SUITE_P(Both, InterruptSignal, testing::Values(SIGINT, SIGTERM));

}  // namespace
}  // namespace morva::test
