#ifndef MORVA_PLATFORM_MEMORY_H_
#define MORVA_PLATFORM_MEMORY_H_

namespace osmik {

/// Lets the process keep the memory that it frees, up to some ten megabytes for each thread. A
/// program that takes and frees the same megabytes for every message spends a third of its time on
/// having them cleared again otherwise. For programs, not for libraries: call it in main(). Does
/// nothing where the C library has no such setting.
void keepFreedMemory();

}  // namespace osmik

#endif  // MORVA_PLATFORM_MEMORY_H_
