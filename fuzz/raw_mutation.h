#ifndef MORVA_FUZZ_RAW_MUTATION_H_
#define MORVA_FUZZ_RAW_MUTATION_H_

#include <cstddef>
#include <cstdint>
#include <string>

/// libFuzzer's own mutation of bytes; the replay program brings a simpler one.
/// @return The new size, at most `maxSize`, which `data` has room for.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace morva::fuzz {

/// Mutates bytes without any knowledge of what they are.
inline void mutateRaw(std::string* bytes, std::size_t maxSize) {
  const std::size_t size = bytes->size();
  if (maxSize < size) maxSize = size;
  if (maxSize == 0) return;
  bytes->resize(maxSize);
  bytes->resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(bytes->data()), size, maxSize));
}

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_RAW_MUTATION_H_
