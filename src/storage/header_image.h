#ifndef MORVA_STORAGE_HEADER_IMAGE_H_
#define MORVA_STORAGE_HEADER_IMAGE_H_

#include <array>
#include <cstddef>
#include <string_view>

#include "storage/bag_file.h"

namespace morva {

/// The bytes of a file header as they are written: the fields, random filler, and the checksum over
/// both.
class HeaderImage {
 public:
  /// What a storage device writes as a whole or not at all, whatever happens to its power.
  static constexpr std::size_t kSectorBytes = 512;

  /// Makes all of it anew.
  /// @param header  Its private data fit.
  void make(const BagFile::Header& header);

  /// Makes the first sector anew and leaves the others as they are: the last four bytes of filler
  /// in it are chosen so that the checksum remains. To be written over an image that is in a file,
  /// of which something would be lost if neither were there whole.
  /// @param header  With the private data that make() was given.
  /// @return False where the private data take the place of that filler; nothing is changed then.
  [[nodiscard]] bool makeFirstSector(const BagFile::Header& header);

  [[nodiscard]] std::string_view bytes() const { return {bytes_.data(), bytes_.size()}; }
  [[nodiscard]] std::string_view firstSector() const { return bytes().substr(0, kSectorBytes); }

 private:
  void fill(const BagFile::Header& header, std::size_t end);

  std::array<char, layout::kHeaderBytes> bytes_{};
};

}  // namespace morva

#endif  // MORVA_STORAGE_HEADER_IMAGE_H_
