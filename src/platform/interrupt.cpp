#include "platform/interrupt.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>

namespace osmik {
namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM};

std::atomic<bool> isRequested = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may not take locks");
std::array<struct sigaction, kSignals.size()> previousActions{};

extern "C" void noteSignal(int /*signal*/) { isRequested = true; }

}  // namespace

Interrupt::Interrupt() {
  isRequested = false;
  struct sigaction action {};
  action.sa_handler = noteSignal;
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], nullptr, &previousActions[i]);
    if (previousActions[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
  }
}

Interrupt::~Interrupt() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], &previousActions[i], nullptr);
  }
}

bool Interrupt::requested() { return isRequested; }

}  // namespace osmik
