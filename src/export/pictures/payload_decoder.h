#ifndef MORVA_EXPORT_PICTURES_PAYLOAD_DECODER_H_
#define MORVA_EXPORT_PICTURES_PAYLOAD_DECODER_H_

#include <memory>
#include <string>
#include <string_view>

namespace morva {

/// Turns H.264 payloads into JPEG files without a file in between.
///
/// The picture library opens streams by name alone, and decodes the beginning of each twice: once
/// to learn what it holds. This does what that library does with a stream of exactly one undamaged
/// picture, with the same decoder and the same conversions, so that every byte is the same; what it
/// is not sure of it leaves to the library. Keeps its buffers for the next payload, but nothing
/// that a payload says. Threads: one at a time.
class PayloadDecoder {
 public:
  PayloadDecoder();
  PayloadDecoder(const PayloadDecoder&) = delete;
  PayloadDecoder& operator=(const PayloadDecoder&) = delete;
  ~PayloadDecoder();

  /// @param jpeg  [out, not null] The picture as a JPEG of the given quality; unchanged otherwise.
  /// @return False for all but one whole picture of the usual kind (4:2:0, eight bits, not cropped
  ///         at its upper or left edge) of at most `maxPixels`.
  [[nodiscard]] bool decode(std::string_view payload, int quality, double maxPixels,
                            std::string* jpeg);

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace morva

#endif  // MORVA_EXPORT_PICTURES_PAYLOAD_DECODER_H_
