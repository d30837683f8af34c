#ifndef MORVA_TESTS_REAL_PICTURE_H_
#define MORVA_TESTS_REAL_PICTURE_H_

#include <cstdint>
#include <string>
#include <vector>

namespace morva::test {

/// A decoded picture: rows from the top, pixels from the left, red, green and blue of 8 bits each.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;
};

/// Decodes an H.264 payload that holds one picture by itself.
/// @throw std::runtime_error where it does not.
[[nodiscard]] Picture decodeH264(const std::string& payload);

/// @throw std::runtime_error for anything but a whole JPEG picture.
[[nodiscard]] Picture decodeJpeg(const std::string& bytes);

/// Peak signal-to-noise ratio of two pictures of one size, dB; infinite where they are equal.
[[nodiscard]] double psnr(const Picture& a, const Picture& b);

}  // namespace morva::test

#endif  // MORVA_TESTS_REAL_PICTURE_H_
