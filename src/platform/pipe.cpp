#include "platform/pipe.h"

#include <csignal>
#include <poll.h>
#include <unistd.h>

#include "platform/ignore_result.h"

namespace osmik {

void outliveBrokenPipes() {
  morva::ignoreResult(std::signal(SIGPIPE, SIG_IGN));  // fails for unknown signals alone
}

bool isReaderGone(StandardStream stream) {
  pollfd descriptor{};
  descriptor.fd = stream == StandardStream::kOutput ? STDOUT_FILENO : STDERR_FILENO;
  return poll(&descriptor, 1, 0) > 0 && (descriptor.revents & (POLLERR | POLLHUP)) != 0;
}

}  // namespace osmik
