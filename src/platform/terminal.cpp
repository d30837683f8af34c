#include "platform/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace osmik {
namespace {

int descriptorOf(StandardStream stream) {
  return stream == StandardStream::kOutput ? STDOUT_FILENO : STDERR_FILENO;
}

}  // namespace

bool isTerminal(StandardStream stream) { return isatty(descriptorOf(stream)) == 1; }

int terminalColumns(StandardStream stream) {
  constexpr int kUsual = 80;
  winsize size{};
  const bool isKnown = ioctl(descriptorOf(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return isKnown ? size.ws_col : kUsual;
}

}  // namespace osmik
