#ifndef MORVA_KIT_SIMULATE_PICTURE_ENCODER_H_
#define MORVA_KIT_SIMULATE_PICTURE_ENCODER_H_

#include <memory>
#include <string>

#include "kit/simulate/picture.h"

namespace morva::sim {

/// Turns pictures into camera payloads, each of which decodes by itself.
class PictureEncoder {
 public:
  PictureEncoder() = default;
  PictureEncoder(const PictureEncoder&) = delete;
  PictureEncoder& operator=(const PictureEncoder&) = delete;
  virtual ~PictureEncoder() = default;

  /// @param data  [out] The payload. @return False after an error line.
  [[nodiscard]] virtual bool encode(const Picture& picture, std::string* data) = 0;
};

/// H.264 with start codes; every payload is SPS, PPS and an IDR picture.
/// @return Null after an error line where the encoder is missing or refuses the size.
[[nodiscard]] std::unique_ptr<PictureEncoder> makeH264Encoder(int width, int height);

/// Baseline JPEG. @return Null after an error line.
[[nodiscard]] std::unique_ptr<PictureEncoder> makeJpegEncoder();

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_PICTURE_ENCODER_H_
