#include "support/bombs.h"

#include <cstdint>

#include "support/bag_builder.h"

namespace morva::test {
namespace {

std::string repeated(const std::string& bytes, std::size_t count) {
  std::string text;
  text.reserve(bytes.size() * count);
  for (std::size_t i = 0; i < count; ++i) text += bytes;
  return text;
}

}  // namespace

std::string zstdBomb(std::size_t blocks) {
  // Magic, a content size of 8 bytes behind a window descriptor of 128 KiB.
  std::string frame("\x28\xB5\x2F\xFD\xC0\x38", 6);
  frame += le<std::uint64_t>(blocks * kBombBlockBytes);
  for (std::size_t i = 1; i <= blocks; ++i) {
    const std::uint32_t last = i == blocks ? 1 : 0;
    const auto header = static_cast<std::uint32_t>(last | 1U << 1 | kBombBlockBytes << 3);
    frame += le<std::uint32_t>(header).substr(0, 3) + 'x';
  }
  return frame;
}

std::string emptySamples(std::size_t count) { return repeated(std::string("\x0A\x00", 2), count); }

std::string scanOfEmptyPoints(std::size_t count) {
  std::string scan = "\x0A";
  for (std::size_t rest = 2 * count; rest > 0; rest >>= 7) {
    scan += static_cast<char>((rest & 0x7F) | (rest >> 7 > 0 ? 0x80 : 0));
  }
  return scan + repeated(std::string("\x12\x00", 2), count);
}

}  // namespace morva::test
