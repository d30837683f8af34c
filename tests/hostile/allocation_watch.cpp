#include "hostile/allocation_watch.h"

#include <atomic>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

std::atomic<std::size_t> largest = 0;
std::atomic<std::size_t> live = 0;
std::atomic<std::size_t> mostLive = 0;

void raise(std::atomic<std::size_t>* most, std::size_t size) {
  std::size_t seen = *most;
  while (size > seen && !most->compare_exchange_weak(seen, size)) {
  }
}

void* allocate(std::size_t size, std::size_t alignment) {
  raise(&largest, size);
  const std::size_t rounded = (size + alignment - 1) / alignment * alignment;
  void* const memory = std::aligned_alloc(alignment, rounded == 0 ? alignment : rounded);
  if (memory == nullptr) throw std::bad_alloc();
  const std::size_t bytes = malloc_usable_size(memory);
  raise(&mostLive, live += bytes);
  return memory;
}

void release(void* memory) {
  live -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

namespace morva::test {

std::size_t largestAllocation() { return largest; }

void resetLargestAllocation() { largest = 0; }

std::size_t mostLiveMemory() { return mostLive; }

std::size_t resetMostLiveMemory() {
  const std::size_t now = live;
  mostLive = now;
  return now;
}

}  // namespace morva::test

void* operator new(std::size_t size) { return allocate(size, alignof(std::max_align_t)); }

void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* memory) noexcept { release(memory); }

void operator delete(void* memory, std::size_t /*size*/) noexcept { release(memory); }

void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { release(memory); }

void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  release(memory);
}
