#include "platform/thread.h"

#include <chrono>
#include <thread>

namespace osmik {

void Thread::msleep(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace osmik
