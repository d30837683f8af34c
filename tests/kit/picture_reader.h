#ifndef MORVA_TESTS_KIT_PICTURE_READER_H_
#define MORVA_TESTS_KIT_PICTURE_READER_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/simulate/picture.h"

namespace morva::test {

/// The picture that a payload decodes to by itself, with a decoder made for it; nothing when it
/// does not. Width and height must be even.
[[nodiscard]] std::optional<sim::Picture> decodeH264(const std::string& payload);
[[nodiscard]] std::optional<sim::Picture> decodeJpeg(const std::string& payload);

/// Types of the NAL units of a stream with start codes, in order: 7 SPS, 8 PPS, 5 IDR, 6 SEI.
[[nodiscard]] std::vector<int> nalTypes(const std::string& payload);

/// The number that was stamped into the picture's squares.
[[nodiscard]] std::uint32_t stampedNumber(const sim::Picture& picture);

/// Peak signal-to-noise ratio of the brightness, dB.
[[nodiscard]] double psnr(const sim::Picture& left, const sim::Picture& right);

}  // namespace morva::test

#endif  // MORVA_TESTS_KIT_PICTURE_READER_H_
