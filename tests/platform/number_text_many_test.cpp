// The same comparison as among the quick tests, at length.

#include <algorithm>
#include <cstdint>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/number_cases.h"

namespace osmik {

TEST(NumberText, EqualsPrintfForAHundredMillionNumbers) {
  constexpr std::size_t kNumbers = 100'000'000;
  const std::size_t workers = std::clamp(std::thread::hardware_concurrency(), 1U, 16U);
  std::vector<std::future<std::string>> differences;
  for (std::size_t worker = 0; worker < workers; ++worker) {
    const std::uint64_t seed = 1000 + worker;
    differences.push_back(std::async(std::launch::async, [=] {
      return test::firstDifference(seed, (kNumbers + workers - 1) / workers);
    }));
  }
  for (auto& difference : differences) EXPECT_EQ(difference.get(), "");
}

}  // namespace osmik
