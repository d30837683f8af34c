#include "kit/interrupt.h"

#include <csignal>

namespace morva::kit {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void noteInterrupt(int /*signal*/) { interrupted = 1; }

}  // namespace

InterruptGuard::InterruptGuard()
    : onInterrupt_(std::signal(SIGINT, noteInterrupt)),
      onTerminate_(std::signal(SIGTERM, noteInterrupt)) {}

InterruptGuard::~InterruptGuard() {
  std::signal(SIGINT, onInterrupt_);
  std::signal(SIGTERM, onTerminate_);
}

bool InterruptGuard::isInterrupted() { return interrupted != 0; }

}  // namespace morva::kit
