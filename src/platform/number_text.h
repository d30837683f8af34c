#ifndef MORVA_PLATFORM_NUMBER_TEXT_H_
#define MORVA_PLATFORM_NUMBER_TEXT_H_

#include <cstddef>
#include <cstdint>

/// Numbers as text, byte for byte as printf gives them in the "C" locale (whatever locale is set)
/// and when rounding to nearest, at a twentieth of its cost.
///
/// Every function writes to `at`, without a terminator, and returns the first byte behind the text.
/// Up to the stated number of bytes are touched, which may be more than the text takes.
/// Threads: any.
namespace osmik {

inline constexpr std::size_t kIntegerTextBytes = 24;  ///< touched for an integer, at most
inline constexpr std::size_t kFloatTextBytes = 56;    ///< the same for a float, six decimals
inline constexpr std::size_t kDoubleTextBytes = 328;  ///< the same for a double, up to nine

[[nodiscard]] char* putUnsigned(std::uint64_t value, char* at);  ///< "%llu"
[[nodiscard]] char* putSigned(std::int64_t value, char* at);     ///< "%lld"
[[nodiscard]] char* putFixed6(float value, char* at);            ///< "%f"
[[nodiscard]] char* putFixed6(double value, char* at);           ///< "%.6f"
[[nodiscard]] char* putFixed9(double value, char* at);           ///< "%.9f"
/// Microseconds as seconds with six decimals, "1700000000.123456". At most kIntegerTextBytes.
[[nodiscard]] char* putMicrosAsSeconds(std::int64_t microseconds, char* at);

}  // namespace osmik

#endif  // MORVA_PLATFORM_NUMBER_TEXT_H_
