#ifndef MORVA_EXPORT_PICTURE_MODULE_H_
#define MORVA_EXPORT_PICTURE_MODULE_H_

#include <string>
#include <vector>

#include "export/picture_decoder.h"

namespace morva {

/// The module that decodes pictures, "kbag_pictures.so". It brings a large picture library with it,
/// so it is loaded when the first picture is to be decoded and stays; a machine without that
/// library does all but pictures.
class PictureModule {
 public:
  /// Loads the module at the first call that finds it.
  /// @param reason  [out, not null] Why there is none.
  /// @return Null where there is none; it is sought again at the next call.
  /// Threads: any.
  [[nodiscard]] static PictureDecoder* decoder(std::string* reason);

  /// Where the module is sought, in this order: beside the program or library that this code is
  /// part of, and in the places into which it is built and installed, relative to it. All paths are
  /// absolute; neither the current directory nor the environment has a say.
  [[nodiscard]] static std::vector<std::string> places();

  /// Loads the module at `path`. The same as decoder() otherwise.
  [[nodiscard]] static PictureDecoder* load(const std::string& path, std::string* reason);

  /// Puts another decoder in the module's place, or the module again when it is null. For tests.
  static void replace(PictureDecoder* decoder);
};

}  // namespace morva

#endif  // MORVA_EXPORT_PICTURE_MODULE_H_
