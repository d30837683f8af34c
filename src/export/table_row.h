#ifndef MORVA_EXPORT_TABLE_ROW_H_
#define MORVA_EXPORT_TABLE_ROW_H_

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/number_text.h"

namespace morva {

/// A number with nine decimals, as degrees are written.
struct NineDecimals {
  double value = 0.0;
};

/// A time in microseconds that is written in seconds, "1700000000.123456".
struct InSeconds {
  std::int64_t us = 0;
};

/// A line of a table, made in place and in one pass: finding out how long a number is costs as much
/// as writing it.
class TableRow {
 public:
  /// Makes the line of `values`, with `separator` between them and a line feed at the end.
  /// Floating values get six decimals; of an integer the type says whether it is signed.
  template <typename... Values>
  void set(char separator, const Values&... values) {
    static_assert(((maxBytes<Values>() + 1) + ...) <= kBytes);
    char* at = bytes_.data();
    ((at = put(values, at), *at++ = separator), ...);
    *(at - 1) = '\n';
    size_ = static_cast<std::size_t>(at - bytes_.data());
  }

  [[nodiscard]] std::string_view text() const { return {bytes_.data(), size_}; }

 private:
  static constexpr std::size_t kBytes = 4096;

  template <typename Value>
  static constexpr std::size_t maxBytes() {
    if constexpr (std::same_as<Value, float>) return osmik::kFloatTextBytes;
    if constexpr (std::same_as<Value, double> || std::same_as<Value, NineDecimals>) {
      return osmik::kDoubleTextBytes;
    }
    return osmik::kIntegerTextBytes;
  }

  static char* put(float value, char* at) { return osmik::putFixed6(value, at); }
  static char* put(double value, char* at) { return osmik::putFixed6(value, at); }
  static char* put(NineDecimals value, char* at) { return osmik::putFixed9(value.value, at); }
  static char* put(InSeconds value, char* at) { return osmik::putMicrosAsSeconds(value.us, at); }
  static char* put(std::signed_integral auto value, char* at) {
    return osmik::putSigned(value, at);
  }
  static char* put(std::unsigned_integral auto value, char* at) {
    return osmik::putUnsigned(value, at);
  }

  std::array<char, kBytes> bytes_;
  std::size_t size_ = 0;
};

}  // namespace morva

#endif  // MORVA_EXPORT_TABLE_ROW_H_
