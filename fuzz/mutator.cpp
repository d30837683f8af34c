#include "mutator.h"

#include <algorithm>

#include "dice.h"
#include "raw_mutation.h"
#include "recording_mutator.h"
#include "wire.h"

namespace morva::fuzz {
namespace {

/// YAML documents: as bytes, or by words that mean something in them.
void mutateText(std::string* text, Dice* dice, std::size_t maxSize) {
  static constexpr std::string_view kWords[] = {"transform: ",
                                                "calibrated: ",
                                                "true",
                                                "no",
                                                "Ta: ",
                                                "Ka: ",
                                                "Ba: ",
                                                "Tg: ",
                                                "Kg: ",
                                                "Bg: ",
                                                "s: ",
                                                "e: ",
                                                "[",
                                                "]",
                                                "{",
                                                "}",
                                                ", ",
                                                "\n",
                                                "- ",
                                                "  ",
                                                ": ",
                                                "&a ",
                                                "*a",
                                                "<<: ",
                                                "? ",
                                                "|\n",
                                                ">\n",
                                                "\"",
                                                "'",
                                                "#",
                                                "---\n",
                                                "...\n",
                                                "%YAML:1.0\n",
                                                "%YAML 1.2\n",
                                                "!!float ",
                                                "!!binary ",
                                                ".nan",
                                                ".inf",
                                                "-.inf",
                                                "0",
                                                "1",
                                                "-1",
                                                "1e38",
                                                "3.5e38",
                                                "1e-46",
                                                "1e999",
                                                "0x10",
                                                "1_000",
                                                "+.5",
                                                "0.9999999",
                                                "[1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1]",
                                                "[0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0]",
                                                "[1, 2, 3, 4, 5, 6, 7, 8, 9]",
                                                "[1e30, 0, 0, 0, 1e30, 0, 0, 0, 1e30]",
                                                "[1, 2]",
                                                "[1, 2, 3]"};
  if (dice->oneIn(3)) return mutateRaw(text, maxSize);
  const std::size_t at = dice->below(text->size() + 1);
  if (dice->oneIn(3)) {
    text->erase(at, dice->below(20));
  } else if (dice->oneIn(8)) {
    text->insert(at, text->substr(dice->below(text->size() + 1), dice->below(200)));
  } else if (dice->oneIn(12)) {  // deep or long
    const std::string_view word = dice->pick(kWords);
    for (std::size_t i = dice->below(700); i > 0 && text->size() < maxSize; --i) {
      text->insert(at, word);
    }
  } else {
    if (dice->oneIn(2)) text->erase(at, dice->below(6));
    text->insert(at, dice->pick(kWords));
  }
}

/// Compression byte, raw size, compressed bytes.
void mutatePacked(std::string* bytes, Dice* dice, std::size_t maxSize) {
  if (bytes->size() < 5 || !dice->oneIn(3)) return mutateRaw(bytes, maxSize);
  if (dice->oneIn(6)) {
    (*bytes)[0] = static_cast<char>(2 + dice->below(2));
    return;
  }
  std::uint32_t size = 0;
  for (unsigned i = 0; i < 4; ++i) {
    size |= std::uint32_t{static_cast<unsigned char>((*bytes)[1 + i])} << (8 * i);
  }
  size = static_cast<std::uint32_t>(dice->changed(size));
  for (unsigned i = 0; i < 4; ++i) (*bytes)[1 + i] = static_cast<char>(size >> (8 * i));
}

}  // namespace

std::string mutated(Form form, std::string_view input, std::size_t maxSize, std::uint64_t seed) {
  Dice dice(seed);
  std::string bytes(input);
  switch (form) {
    case Form::kRecording:
      if (dice.oneIn(12)) {
        mutateRaw(&bytes, maxSize);
      } else {
        bytes = mutatedRecording(bytes, maxSize, &dice);
      }
      break;
    case Form::kIndex:
    case Form::kLidar:
    case Form::kMessage:
    case Form::kDevice:
      mutateMessageBytes(&bytes, &dice, maxSize);
      break;
    case Form::kCalibration:
      mutateText(&bytes, &dice, maxSize);
      break;
    case Form::kPacked:
      mutatePacked(&bytes, &dice, maxSize);
      break;
  }
  if (bytes.size() > maxSize) bytes.resize(maxSize);
  return bytes;
}

std::string crossed(Form form, std::string_view a, std::string_view b, std::size_t maxSize,
                    std::uint64_t seed) {
  Dice dice(seed);
  // libFuzzer crosses as often as it mutates, which is more than there is to gain from it.
  if (!dice.oneIn(4)) return mutated(form, a, maxSize, dice.next());
  std::string bytes;
  if (form == Form::kRecording) {
    bytes = crossedRecordings(a, b, maxSize, &dice);
  } else {
    bytes = std::string(a.substr(0, dice.below(a.size() + 1)));
    bytes += b.substr(dice.below(b.size() + 1));
  }
  if (bytes.size() > maxSize) bytes.resize(maxSize);
  return bytes;
}

}  // namespace morva::fuzz
