#ifndef MORVA_PLATFORM_STR_UTIL_H_
#define MORVA_PLATFORM_STR_UTIL_H_

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

namespace osmik {

/// One argument of a printf-style format, with its type kept, so that a conversion never reads an
/// argument as something that it is not. Strings are borrowed for the duration of the call.
class FormatArg {
 public:
  enum class Kind : std::uint8_t {
    kInt,
    kUnsigned,
    kLong,
    kUnsignedLong,
    kDouble,
    kText,
    kPointer
  };

  template <std::integral T>
  // NOLINTNEXTLINE(google-explicit-constructor): converts every argument of format()
  FormatArg(T value) {
    if constexpr (std::is_signed_v<T> && sizeof(T) <= sizeof(int)) {
      kind_ = Kind::kInt;
      int_ = value;
    } else if constexpr (std::is_signed_v<T>) {
      kind_ = Kind::kLong;
      int_ = value;
    } else if constexpr (sizeof(T) <= sizeof(int)) {
      kind_ = Kind::kUnsigned;
      unsigned_ = value;
    } else {
      kind_ = Kind::kUnsignedLong;
      unsigned_ = value;
    }
  }
  // NOLINTNEXTLINE(google-explicit-constructor)
  FormatArg(double value) : kind_(Kind::kDouble), double_(value) {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  FormatArg(std::string_view value) : kind_(Kind::kText), text_(value) {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  FormatArg(const std::string& value) : kind_(Kind::kText), text_(value) {}
  /// A null pointer prints as "(null)".
  // NOLINTNEXTLINE(google-explicit-constructor)
  FormatArg(const char* value)
      : kind_(Kind::kText), text_(value == nullptr ? std::string_view("(null)") : value) {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  FormatArg(const void* value) : kind_(Kind::kPointer), pointer_(value) {}

  [[nodiscard]] Kind kind() const { return kind_; }
  [[nodiscard]] std::int64_t asInt() const { return int_; }
  [[nodiscard]] std::uint64_t asUnsigned() const { return unsigned_; }
  [[nodiscard]] double asDouble() const { return double_; }
  [[nodiscard]] std::string_view asText() const { return text_; }
  [[nodiscard]] const void* asPointer() const { return pointer_; }

 private:
  Kind kind_ = Kind::kInt;
  union {
    std::int64_t int_ = 0;
    std::uint64_t unsigned_;
    double double_;
    const void* pointer_;
  };
  std::string_view text_;
};

class StrUtil {
 public:
  /// Formats like printf, byte for byte, with every argument taken as the type that it has: "%d" of
  /// a 64-bit value prints all of it, "%llf" prints a double. A format that does not fit its
  /// arguments is a mistake of ours; it yields the format text itself rather than an exception.
  /// Threads: any.
  template <typename... Args>
  [[nodiscard]] static std::string format(const char* format, const Args&... args) {
    return vformat(format, {FormatArg(args)...});
  }

  /// `size` bytes without meaning, different at every call. Threads: any.
  [[nodiscard]] static std::string randomData(std::size_t size);

  [[nodiscard]] static std::string vformat(const char* format,
                                           std::initializer_list<FormatArg> args);
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_STR_UTIL_H_
