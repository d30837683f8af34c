#ifndef MORVA_TESTS_HOSTILE_ALLOCATION_WATCH_H_
#define MORVA_TESTS_HOSTILE_ALLOCATION_WATCH_H_

#include <cstddef>

namespace morva::test {

/// The largest single piece of memory that operator new was asked for since the last reset, in any
/// thread of this program.
[[nodiscard]] std::size_t largestAllocation();
void resetLargestAllocation();

}  // namespace morva::test

#endif  // MORVA_TESTS_HOSTILE_ALLOCATION_WATCH_H_
