#include <random>
#include <string>

#include <gtest/gtest.h>

#include "storage/random_messages.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

constexpr std::size_t kLargestBytes = 8UL * 1024 * 1024;

class RoundTripSlow : public testing::TestWithParam<CompressionType> {};

INSTANTIATE_TEST_SUITE_P(Codecs, RoundTripSlow,
                         testing::Values(CompressionType::kNone, CompressionType::kLz4,
                                         CompressionType::kZstd));

TEST_P(RoundTripSlow, ThousandMessagesUpToEightMebibytesComeBack) {
  const TempDir dir;
  for (unsigned seed = 100; seed < 110; ++seed) {
    SCOPED_TRACE(seed);
    roundTrip(dir / "a.kbag", GetParam(), seed, 100, [](std::mt19937* random) {
      // Few large ones: the size is uniform in its logarithm.
      std::size_t limit = 1;
      for (auto bits = (*random)() % 24; bits > 0; --bits) limit *= 2;
      return 1 + (*random)() % limit;
    });
  }
}

TEST_P(RoundTripSlow, LargestSizesComeBackToTheByte) {
  const TempDir dir;
  int next = 0;
  roundTrip(dir / "a.kbag", GetParam(), 7, 6, [&next](std::mt19937* /*random*/) {
    const std::size_t sizes[] = {
        1, kLargestBytes, 1024 * 1024, 1024 * 1024 + 1, kLargestBytes - 1, 128 * 1024};
    return sizes[next++];
  });
}

}  // namespace
}  // namespace morva::test
