#include "tool/console.h"

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace morva::test {

TEST(ConsoleLine, IsBoldInItsColour) {
  testing::internal::CaptureStdout();
  Console::line(Ink::kYellow, "a %d", 1);
  Console::line(Ink::kGreen, "%s", "b");
  Console::line(Ink::kCyan, "c");
  Console::text("plain\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\033[33m\033[1ma 1\033[0m\n\033[32m\033[1mb\033[0m\n\033[36m\033[1mc\033[0m\nplain\n");
}

TEST(ConsoleLine, OfManyThreadsStaysWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  testing::internal::CaptureStdout();
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([] {
        for (int i = 0; i < kLines; ++i) Console::line(Ink::kGreen, "topic %s", "/imu");
      });
    }
  }
  std::string expected;
  for (int i = 0; i < kThreads * kLines; ++i) expected += "\033[32m\033[1mtopic /imu\033[0m\n";
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
}

TEST(ConsoleFlush, IsTrueWhereOutputArrives) {
  testing::internal::CaptureStdout();
  Console::text("x");
  EXPECT_TRUE(Console::flush());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "x");
}

}  // namespace morva::test
