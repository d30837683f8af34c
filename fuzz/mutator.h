#ifndef MORVA_FUZZ_MUTATOR_H_
#define MORVA_FUZZ_MUTATOR_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "target.h"

namespace morva::fuzz {

/// Changes an input into another one of at most `maxSize` bytes, knowing what its bytes are:
/// nearly always checksums and sizes around the change are right, so that it is looked at.
[[nodiscard]] std::string mutated(Form form, std::string_view input, std::size_t maxSize,
                                  std::uint64_t seed);

/// An input made of parts of two.
[[nodiscard]] std::string crossed(Form form, std::string_view a, std::string_view b,
                                  std::size_t maxSize, std::uint64_t seed);

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_MUTATOR_H_
