#include "platform/memory.h"

#include <cstdint>
#include <cstdlib>  // defines __GLIBC__
#include <sys/mman.h>

#include "platform/ignore_result.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace osmik {

void keepFreedMemory() {
#ifdef __GLIBC__
  constexpr int kKeptBytes = 32 * 1024 * 1024;
  ::mallopt(M_MMAP_THRESHOLD, kKeptBytes);
  ::mallopt(M_TRIM_THRESHOLD, kKeptBytes);
#endif
}

void useLargePages(void* memory, std::size_t bytes) {
#ifdef MADV_HUGEPAGE
  constexpr std::uintptr_t kLargePage = 2UL * 1024 * 1024;
  const auto begin = reinterpret_cast<std::uintptr_t>(memory);
  const std::uintptr_t first = (begin + kLargePage - 1) / kLargePage * kLargePage;
  const std::uintptr_t last = (begin + bytes) / kLargePage * kLargePage;
  if (first >= last) return;
  char* const pages = static_cast<char*>(memory) + (first - begin);
  morva::ignoreResult(::madvise(pages, last - first, MADV_HUGEPAGE));
#endif
}

}  // namespace osmik
