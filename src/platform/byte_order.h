#ifndef MORVA_PLATFORM_BYTE_ORDER_H_
#define MORVA_PLATFORM_BYTE_ORDER_H_

#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

namespace morva {

static_assert(std::endian::native == std::endian::little,
              "a big-endian build needs byte swaps here");

/// Reads a little-endian fixed-width integer from `bytes`, which need not be aligned.
template <std::integral T>
[[nodiscard]] T loadLe(const void* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

/// Stores `value` as little-endian fixed-width integer at `bytes`, which need not be aligned.
template <std::integral T>
void storeLe(void* bytes, T value) {
  std::memcpy(bytes, &value, sizeof value);
}

/// Appends `value` to `out` as a little-endian fixed-width integer. Name the width at the call:
/// appendLe<std::uint32_t>(&out, n).
template <std::integral T>
void appendLe(std::string* out, std::type_identity_t<T> value) {
  std::array<char, sizeof(T)> bytes;
  storeLe<T>(bytes.data(), value);
  out->append(bytes.data(), bytes.size());
}

}  // namespace morva

#endif  // MORVA_PLATFORM_BYTE_ORDER_H_
