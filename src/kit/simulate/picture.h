#ifndef MORVA_KIT_SIMULATE_PICTURE_H_
#define MORVA_KIT_SIMULATE_PICTURE_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace morva::sim {

/// A colour picture: brightness for every pixel, the two colour differences for every 2 x 2 pixels
/// (YUV 4:2:0), rows without padding. Width and height are even.
struct Picture {
  Picture(int pictureWidth, int pictureHeight)
      : width(pictureWidth), height(pictureHeight), y(area(width, height)) {
    u.resize(area(width / 2, height / 2));
    v.resize(u.size());
  }

  static std::size_t area(int w, int h) {
    return static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
  }

  /// Brightness 16 (black) to 235 (white).
  void setLuma(int column, int row, std::uint8_t value) {
    y[area(width, row) + static_cast<std::size_t>(column)] = value;
  }
  /// Colour differences of the 2 x 2 pixels that hold the pixel; 128 is grey.
  void setChroma(int column, int row, std::uint8_t blue, std::uint8_t red) {
    const std::size_t at = area(width / 2, row / 2) + static_cast<std::size_t>(column / 2);
    u[at] = blue;
    v[at] = red;
  }

  int width;
  int height;
  std::vector<std::uint8_t> y, u, v;
};

/// Writes a number into a picture twice: in digits at the top left, for people, and below them as
/// 16 white (1) or black (0) squares of kBitPixels, the highest bit first, for programs.
void stampNumber(std::uint32_t number, Picture* picture);

inline constexpr int kBitPixels = 8;
inline constexpr int kBits = 16;
inline constexpr int kBitsLeft = 8;  ///< pixels from the left edge to the first square
inline constexpr int kBitsTop = 40;  ///< pixels from the top edge to the squares

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_PICTURE_H_
