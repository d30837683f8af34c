#ifndef MORVA_PLATFORM_TERMINAL_H_
#define MORVA_PLATFORM_TERMINAL_H_

#include <cstdint>

namespace osmik {

enum class StandardStream : std::uint8_t { kOutput, kError };

/// True where a standard stream is shown on a terminal, not piped or sent to a file. Threads: any.
[[nodiscard]] bool isTerminal(StandardStream stream);

}  // namespace osmik

#endif  // MORVA_PLATFORM_TERMINAL_H_
