#ifndef MORVA_PLATFORM_PIPE_H_
#define MORVA_PLATFORM_PIPE_H_

#include "platform/terminal.h"

namespace osmik {

/// From now on a write into a pipe that nobody reads fails instead of ending the program.
void outliveBrokenPipes();

/// True where a standard stream is a pipe or socket that nobody reads any more. Threads: any.
[[nodiscard]] bool isReaderGone(StandardStream stream);

}  // namespace osmik

#endif  // MORVA_PLATFORM_PIPE_H_
