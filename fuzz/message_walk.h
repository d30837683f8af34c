#ifndef MORVA_FUZZ_MESSAGE_WALK_H_
#define MORVA_FUZZ_MESSAGE_WALK_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "morva/bag.h"
#include "morva/records.h"

namespace morva::fuzz {

/// Messages of one run that are read at most: an index may name one message any number of times.
inline constexpr std::size_t kMaxReads = 500;

/// Whether the format lets the message be read at all, if its bytes are right: one of no samples or
/// no bytes, or that is larger stored than before, is refused.
[[nodiscard]] bool isReadable(const MsgIndex& index);

/// Ends the process where a message that was read is not what the file's bytes say.
void expectTrueTo(std::string_view bag, std::uint8_t compression, const MsgIndex& index,
                  const std::string& payload);

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_MESSAGE_WALK_H_
