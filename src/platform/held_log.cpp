#include "platform/held_log.h"

#include "platform/tracer.h"

namespace morva {
namespace {

thread_local HeldLog* current = nullptr;

}  // namespace

HeldLog::Scope::Scope(HeldLog* held) : before_(current) { current = held; }
HeldLog::Scope::~Scope() { current = before_; }

HeldLog* HeldLog::ofThread() { return current; }

void HeldLog::print() {
  const std::vector<std::pair<int, std::string>> lines = std::exchange(lines_, {});
  auto& tracer = osmik::Singleton<osmik::Tracer>::getInstance();
  for (const auto& [level, line] : lines) tracer.print(level, "%s", line);
}

}  // namespace morva
