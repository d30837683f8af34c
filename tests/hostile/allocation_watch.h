#ifndef MORVA_TESTS_HOSTILE_ALLOCATION_WATCH_H_
#define MORVA_TESTS_HOSTILE_ALLOCATION_WATCH_H_

#include <cstddef>

namespace morva::test {

/// The largest single piece of memory that operator new was asked for since the last reset, in any
/// thread of this program.
[[nodiscard]] std::size_t largestAllocation();
void resetLargestAllocation();

/// Memory that operator new has given out and that is not freed yet, at its most since the last
/// reset. What C libraries take by themselves does not count.
[[nodiscard]] std::size_t mostLiveMemory();
/// Begins with what is live now, which is returned.
std::size_t resetMostLiveMemory();

}  // namespace morva::test

#endif  // MORVA_TESTS_HOSTILE_ALLOCATION_WATCH_H_
