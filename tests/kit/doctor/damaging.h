#ifndef MORVA_TESTS_KIT_DOCTOR_DAMAGING_H_
#define MORVA_TESTS_KIT_DOCTOR_DAMAGING_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "kit/doctor/sample_recording.h"

namespace morva::test {

/// Damages the bytes of a recording at random, and keeps its own account of what is left: it knows
/// of each byte where it came from, and nothing of how a recording is read.
class Damaging {
 public:
  Damaging(const SampleRecording& sample, std::uint32_t seed);

  /// One more damage of any kind: flipped bits, zeroed, repeated, cut out, inserted bytes,
  /// overwritten headers of chunks or of the file.
  void damage();

  [[nodiscard]] const std::string& bytes() const { return bytes_; }
  [[nodiscard]] const std::string& story() const { return story_; }  ///< what was done

  /// Where all bytes of a part of the sample lie as they were, one behind the other, moved at most
  /// by what was cut out or inserted before them. @return npos where they do not.
  [[nodiscard]] std::size_t whereIntact(std::size_t begin, std::size_t end) const;
  /// Whether a copy of the part lies anywhere.
  [[nodiscard]] bool isAnywhere(std::size_t begin, std::size_t end) const;

 private:
  void flipBits();
  void zero();
  void repeatOver();
  void cutOut();
  void insert();
  void insertCopy();
  void overwriteChunkHeader();
  void overwriteFileHeader();

  [[nodiscard]] std::size_t anyBelow(std::size_t limit);
  [[nodiscard]] std::size_t anyPlace() { return anyBelow(bytes_.size()); }
  [[nodiscard]] std::size_t anyLength();
  void overwrite(std::size_t at, const std::string& content);
  void tell(const char* what, std::size_t at, std::size_t length);

  const SampleRecording& sample_;
  std::mt19937 random_;
  std::string bytes_;
  std::vector<std::size_t> origin_;  ///< by byte: its place in the sample; npos: inserted
  std::string story_;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_KIT_DOCTOR_DAMAGING_H_
