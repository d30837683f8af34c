#ifndef MORVA_FUZZ_RECORDING_MUTATOR_H_
#define MORVA_FUZZ_RECORDING_MUTATOR_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "dice.h"

namespace morva::fuzz {

/// Inputs of Form::kRecording: one or a few changes to the chunks, their headers and payloads, to
/// the topics, the index, the header or the side file, and then, mostly, right sizes, checksums and
/// offsets again.
[[nodiscard]] std::string mutatedRecording(std::string_view input, std::size_t maxSize, Dice* dice);
[[nodiscard]] std::string crossedRecordings(std::string_view a, std::string_view b,
                                            std::size_t maxSize, Dice* dice);

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_RECORDING_MUTATOR_H_
