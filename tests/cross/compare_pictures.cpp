// Compares decoded JPEG pictures, as exchange.py needs it.
//
//   compare_pictures < PAIRS
//
// PAIRS has a line "FILE|FILE" for each comparison. Each is answered by a line with the largest
// difference between two values of a pixel (of 255), and the peak signal-to-noise ratio in dB
// ("inf" where there is none).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "real/picture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

int largestDifference(const Picture& a, const Picture& b) {
  int largest = 0;
  for (std::size_t i = 0; i < a.rgb.size(); ++i) {
    largest = std::max(largest, std::abs(a.rgb[i] - b.rgb[i]));
  }
  return largest;
}

void compare(const std::string& files) {
  const std::size_t bar = files.find('|');
  if (bar == std::string::npos) throw std::runtime_error("not a pair: " + files);
  const Picture a = decodeJpeg(readFile(files.substr(0, bar)));
  const Picture b = decodeJpeg(readFile(files.substr(bar + 1)));
  const double ratio = psnr(a, b);  // refuses pictures of different sizes
  std::printf("%d %.2f\n", largestDifference(a, b), ratio);
}

int compareAll() {
  std::string files;
  while (std::getline(std::cin, files)) compare(files);
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace morva::test

int main() {
  try {
    return morva::test::compareAll();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "compare_pictures: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
