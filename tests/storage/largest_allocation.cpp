#include "storage/largest_allocation.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t>& largest() {
  static std::atomic<std::size_t> bytes = 0;
  return bytes;
}

}  // namespace

// The operators of the whole test program.
void* operator new(std::size_t size) {
  std::size_t before = largest();
  while (size > before && !largest().compare_exchange_weak(before, size)) {
  }
  if (void* const memory = std::malloc(size > 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace morva::test {

LargestAllocation::LargestAllocation() { largest() = 0; }

std::size_t LargestAllocation::bytes() const { return largest(); }

}  // namespace morva::test
