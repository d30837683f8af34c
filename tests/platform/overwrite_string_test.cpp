#include "platform/overwrite_string.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

using morva::overwriteString;

TEST(OverwriteString, KeepsWhatWasWrittenAndOffersExactlyTheSize) {
  std::string text = "left over";
  // Growing a little, growing a lot and shrinking: the library rounds capacities up.
  for (const std::size_t size : {0U, 5U, 16U, 17U, 40U, 1000U, 1001U, 30U, 5000U}) {
    std::size_t offered = 0;
    overwriteString(&text, size, [&](char* memory, std::size_t bytes) {
      offered = bytes;
      std::memset(memory, 'n', bytes);
      return bytes;
    });
    EXPECT_EQ(offered, size);
    EXPECT_EQ(text, std::string(size, 'n'));
  }
}

TEST(OverwriteString, KeepsNoMoreThanItWasTold) {
  std::string text(100, 'x');
  overwriteString(&text, 50, [](char* memory, std::size_t /*size*/) {
    std::copy_n("abc", 3, memory);
    return std::size_t{3};
  });
  EXPECT_EQ(text, "abc");
  EXPECT_STREQ(text.c_str(), "abc");
  overwriteString(&text, 50, [](char* /*memory*/, std::size_t /*size*/) { return std::size_t{0}; });
  EXPECT_EQ(text, "");
}
