#include "platform/memory.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <vector>

#include <gtest/gtest.h>

namespace osmik {
namespace {

constexpr std::size_t kMebibyte = 1024UL * 1024;

TEST(UseLargePages, MemoryKeepsWhatIsInItWhereverItBegins) {
  for (const std::size_t begin : {std::size_t{0}, std::size_t{1}, 3 * kMebibyte + 5}) {
    std::vector<unsigned char> bytes(16 * kMebibyte);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 31);
    const std::vector<unsigned char> before = bytes;
    useLargePages(bytes.data() + begin, bytes.size() - begin);
    EXPECT_EQ(bytes, before) << begin;
  }
}

TEST(UseLargePages, MemoryWithoutAWholeLargePageIsLeftAlone) {
  std::vector<char> bytes(kMebibyte, 'x');
  errno = 0;
  useLargePages(bytes.data(), bytes.size());
  useLargePages(bytes.data(), 0);
  useLargePages(nullptr, 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(std::ranges::count(bytes, 'x'), static_cast<std::ptrdiff_t>(bytes.size()));
}

}  // namespace
}  // namespace osmik
