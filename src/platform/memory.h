#ifndef MORVA_PLATFORM_MEMORY_H_
#define MORVA_PLATFORM_MEMORY_H_

#include <cstddef>

namespace osmik {

/// Lets the process keep the memory that it frees, up to some ten megabytes for each thread. A
/// program that takes and frees the same megabytes for every message spends a third of its time on
/// having them cleared again otherwise. For programs, not for libraries: call it in main(). Does
/// nothing where the C library has no such setting.
void keepFreedMemory();

/// Asks for large pages under memory that was just allocated and is about to be filled: clearing
/// and mapping 4 KiB at a time can cost more than what is written there. Memory that holds no whole
/// large page is left alone. A hint: it changes nothing but the speed.
void useLargePages(void* memory, std::size_t bytes);

}  // namespace osmik

#endif  // MORVA_PLATFORM_MEMORY_H_
