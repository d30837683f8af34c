#ifndef MORVA_TESTS_SUPPORT_BOMBS_H_
#define MORVA_TESTS_SUPPORT_BOMBS_H_

#include <cstddef>
#include <string>

/// Few bytes that restore to many.
namespace morva::test {

inline constexpr std::size_t kBombBlockBytes = 128UL * 1024;

/// A Zstandard frame of so many blocks, each kBombBlockBytes of one byte, stored in 4 bytes.
[[nodiscard]] std::string zstdBomb(std::size_t blocks);

/// An array message of so many samples that have nothing in them, 2 bytes each.
[[nodiscard]] std::string emptySamples(std::size_t count);

/// An array message of one scan of so many points that have nothing in them, 2 bytes each.
[[nodiscard]] std::string scanOfEmptyPoints(std::size_t count);

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_BOMBS_H_
