#include "kit/simulate/rtcm.h"

#include <cassert>
#include <cstdint>

namespace morva::sim {

namespace {

constexpr std::size_t kMaxContentBytes = 1023;

std::uint32_t crc24q(std::string_view bytes) {
  constexpr std::uint32_t kPolynomial = 0x1864CFB;
  std::uint32_t crc = 0;
  for (const char c : bytes) {
    crc ^= static_cast<std::uint32_t>(static_cast<std::uint8_t>(c)) << 16U;
    for (int bit = 0; bit < 8; ++bit) {
      crc <<= 1U;
      if ((crc & 0x1000000U) != 0) crc ^= kPolynomial;
    }
  }
  return crc;
}

}  // namespace

std::string rtcmFrame(std::string_view content) {
  assert(content.size() <= kMaxContentBytes);
  std::string frame = {'\xD3', static_cast<char>(content.size() >> 8U),
                       static_cast<char>(content.size() & 0xFFU)};
  frame += content;
  const std::uint32_t crc = crc24q(frame);
  for (const unsigned shift : {16U, 8U, 0U}) frame += static_cast<char>(crc >> shift & 0xFFU);
  return frame;
}

}  // namespace morva::sim
