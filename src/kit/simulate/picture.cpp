#include "kit/simulate/picture.h"

#include <algorithm>
#include <array>

namespace morva::sim {

namespace {

constexpr std::uint8_t kBlack = 16;
constexpr std::uint8_t kWhite = 235;
constexpr std::uint8_t kGrey = 128;

void fillRect(int left, int top, int width, int height, std::uint8_t luma, Picture* picture) {
  const int right = std::min(left + width, picture->width);
  const int bottom = std::min(top + height, picture->height);
  for (int row = top; row < bottom; ++row) {
    for (int column = left; column < right; ++column) {
      picture->setLuma(column, row, luma);
      picture->setChroma(column, row, kGrey, kGrey);
    }
  }
}

constexpr int kDigits = 6;
constexpr int kStroke = 4;
constexpr int kDigitWidth = 14;
constexpr int kDigitHeight = 24;

// A stroke of a seven-segment digit, from the digit's top left corner.
struct Segment {
  int left, top, width, height;
};

constexpr int kLower = (kDigitHeight - kStroke) / 2;  // top of the middle stroke

constexpr std::array<Segment, 7> kSegments = {{
    {0, 0, kDigitWidth, kStroke},                                     // a: top
    {kDigitWidth - kStroke, 0, kStroke, kLower + kStroke},            // b: top right
    {kDigitWidth - kStroke, kLower, kStroke, kDigitHeight - kLower},  // c: bottom right
    {0, kDigitHeight - kStroke, kDigitWidth, kStroke},                // d: bottom
    {0, kLower, kStroke, kDigitHeight - kLower},                      // e: bottom left
    {0, 0, kStroke, kLower + kStroke},                                // f: top left
    {0, kLower, kDigitWidth, kStroke},                                // g: middle
}};

// Bit 0 is segment a.
constexpr std::array<unsigned, 10> kDigitSegments = {0x3F, 0x06, 0x5B, 0x4F, 0x66,
                                                     0x6D, 0x7D, 0x07, 0x7F, 0x6F};

void drawDigit(unsigned digit, int left, int top, Picture* picture) {
  for (std::size_t i = 0; i < kSegments.size(); ++i) {
    if ((kDigitSegments[digit] >> i & 1U) == 0) continue;
    const Segment& segment = kSegments[i];
    fillRect(left + segment.left, top + segment.top, segment.width, segment.height, kWhite,
             picture);
  }
}

}  // namespace

void stampNumber(std::uint32_t number, Picture* picture) {
  fillRect(0, 0, kBitsLeft * 2 + kBits * kBitPixels, kBitsTop + 2 * kBitPixels, kBlack, picture);
  std::uint32_t rest = number;
  for (int i = kDigits - 1; i >= 0; --i) {
    drawDigit(rest % 10, kBitsLeft + i * (kDigitWidth + 6), 8, picture);
    rest /= 10;
  }
  for (int bit = 0; bit < kBits; ++bit) {
    if ((number >> (kBits - 1 - bit) & 1U) == 0) continue;
    fillRect(kBitsLeft + bit * kBitPixels, kBitsTop, kBitPixels, kBitPixels, kWhite, picture);
  }
}

}  // namespace morva::sim
