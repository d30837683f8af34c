#include "kit/inspect/base64.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace morva::inspect {

void appendBase64(std::string_view bytes, std::string* text) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  text->reserve(text->size() + (bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8U | (i < count ? static_cast<std::uint8_t>(bytes[at + i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      *text += i <= count ? kDigits[group >> (18U - 6U * i) & 0x3FU] : '=';
    }
  }
}

}  // namespace morva::inspect
