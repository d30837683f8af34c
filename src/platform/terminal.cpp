#include "platform/terminal.h"

#include <unistd.h>

namespace osmik {

bool isTerminal(StandardStream stream) {
  return isatty(stream == StandardStream::kOutput ? STDOUT_FILENO : STDERR_FILENO) == 1;
}

}  // namespace osmik
