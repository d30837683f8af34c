#ifndef MORVA_EXPORT_PICTURE_DECODER_H_
#define MORVA_EXPORT_PICTURE_DECODER_H_

#include <string>
#include <string_view>

namespace morva {

enum class PictureCode {
  kOk,
  kNotOpened,          ///< no stream of pictures was recognised
  kNotRead,            ///< no picture came out of it, or one of an absurd size
  kNotEncoded,         ///< the picture cannot be made a JPEG
  kLibraryException,   ///< the picture library threw
  kStandardException,  ///< something else threw
  kUnknownException,
};

struct PictureResult {
  PictureCode code = PictureCode::kOk;
  std::string text;  ///< of the exception
};

/// Turns recorded pictures into JPEG files. Lives in a module of its own, see PictureModule.
/// Threads: any number at the same time.
class PictureDecoder {
 public:
  PictureDecoder() = default;
  PictureDecoder(const PictureDecoder&) = delete;
  PictureDecoder& operator=(const PictureDecoder&) = delete;
  virtual ~PictureDecoder() = default;

  /// Decodes a payload in memory where it holds exactly one undamaged picture, to the same JPEG as
  /// decode() makes of a file that holds it, at half of the cost.
  /// @param jpeg  [out, not null] Unchanged where the result is false.
  /// @return False for every other payload: decode() has the verdict.
  [[nodiscard]] virtual bool decodePayload(std::string_view payload, std::string* jpeg) = 0;

  /// Decodes the first picture of an H.264 file and encodes it as a JPEG of quality 95.
  /// @param path  Absolute, so that no part of it is taken for a protocol.
  /// @param jpeg  [out, not null] Unspecified on failure.
  [[nodiscard]] virtual PictureResult decode(const std::string& path, std::string* jpeg) = 0;
};

/// The one function of the module, under kPictureFunction: its decoder, which lives as long as the
/// process. The name changes with the interface, so that a module of another version is not taken.
using PictureFunction = PictureDecoder* (*)();
inline constexpr char kPictureFunction[] = "kbagPictureDecoder2";

}  // namespace morva

#endif  // MORVA_EXPORT_PICTURE_DECODER_H_
