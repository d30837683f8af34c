#include "hostile/allocation_watch.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> largest = 0;

void* allocate(std::size_t size, std::size_t alignment) {
  std::size_t seen = largest;
  while (size > seen && !largest.compare_exchange_weak(seen, size)) {
  }
  const std::size_t rounded = (size + alignment - 1) / alignment * alignment;
  void* const memory = std::aligned_alloc(alignment, rounded == 0 ? alignment : rounded);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

namespace morva::test {

std::size_t largestAllocation() { return largest; }

void resetLargestAllocation() { largest = 0; }

}  // namespace morva::test

void* operator new(std::size_t size) { return allocate(size, alignof(std::max_align_t)); }

void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  std::free(memory);
}
