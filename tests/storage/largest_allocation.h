#ifndef MORVA_TESTS_STORAGE_LARGEST_ALLOCATION_H_
#define MORVA_TESTS_STORAGE_LARGEST_ALLOCATION_H_

#include <cstddef>

namespace morva::test {

/// Watches the size of the largest single piece of memory that the program takes with `new` while
/// it lives. One at a time.
class LargestAllocation {
 public:
  LargestAllocation();
  [[nodiscard]] std::size_t bytes() const;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_STORAGE_LARGEST_ALLOCATION_H_
