#ifndef MORVA_PLATFORM_TERMINAL_H_
#define MORVA_PLATFORM_TERMINAL_H_

#include <cstdint>

namespace osmik {

enum class StandardStream : std::uint8_t { kOutput, kError };

/// True where a standard stream is shown on a terminal, not piped or sent to a file. Threads: any.
[[nodiscard]] bool isTerminal(StandardStream stream);

/// Characters to a line of the terminal that shows a standard stream; 80 where that is not known.
/// Threads: any.
[[nodiscard]] int terminalColumns(StandardStream stream);

}  // namespace osmik

#endif  // MORVA_PLATFORM_TERMINAL_H_
