#ifndef MORVA_FUZZ_RECORDING_INPUT_H_
#define MORVA_FUZZ_RECORDING_INPUT_H_

#include <string>
#include <string_view>

namespace morva::fuzz {

/// An input of Form::kRecording: the bytes of a bag; or those of a bag, those of its side file, the
/// size of the latter (u32) and "SIDE". So every bag is an input as it stands.
struct RecordingInput {
  std::string bag;
  std::string side;
  bool hasSide = false;

  [[nodiscard]] static RecordingInput parse(std::string_view input);
  [[nodiscard]] std::string bytes() const;
};

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_RECORDING_INPUT_H_
