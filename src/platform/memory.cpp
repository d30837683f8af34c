#include "platform/memory.h"

#include <cstdlib>  // defines __GLIBC__

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

}  // namespace osmik
