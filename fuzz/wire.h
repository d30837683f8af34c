#ifndef MORVA_FUZZ_WIRE_H_
#define MORVA_FUZZ_WIRE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dice.h"

/// Protobuf's encoding as a tree that can be changed at will, into forms that no library writes.
namespace morva::fuzz {

struct WireField {
  enum Type : std::uint8_t { kVarint = 0, kFixed64 = 1, kBytes = 2, kFixed32 = 5 };

  std::uint32_t number = 1;
  std::uint8_t type = kVarint;
  std::uint64_t value = 0;  ///< of the number types
  std::string bytes;        ///< of kBytes, where `isMessage` is false
  bool isMessage = false;   ///< of kBytes: `fields` are its contents
  std::vector<WireField> fields;
  unsigned spareBytes = 0;       ///< by which the number or length is longer than it need be
  std::int64_t lengthError = 0;  ///< of kBytes: the length that is written is wrong by this
};

using WireMessage = std::vector<WireField>;

/// Nothing where `bytes` are no message.
[[nodiscard]] std::optional<WireMessage> parseWire(std::string_view bytes);
[[nodiscard]] std::string encodeWire(const WireMessage& message);

/// Changes one thing somewhere in the tree; lengths around it stay right, as a rule.
void mutateWire(WireMessage* message, Dice* dice, std::size_t maxGrowth);

/// The same on bytes, which are mutated raw where they are no message, and sometimes where they
/// are.
void mutateMessageBytes(std::string* bytes, Dice* dice, std::size_t maxSize);

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_WIRE_H_
