#include "platform/tracer.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "platform/held_log.h"

namespace osmik {

void STDSink::write(int /*level*/, std::string_view line) {
  std::string text(line);
  text += '\n';
  // One call a line: lines of several threads or processes do not mix.
  std::fwrite(text.data(), 1, text.size(), stderr);
}

void Tracer::addSink(std::shared_ptr<TracerSink> sink) {
  const std::lock_guard lock(mutex_);
  sinks_.push_back(std::move(sink));
  hasSinks_ = true;
}

bool Tracer::removeSink(const std::shared_ptr<TracerSink>& sink) {
  const std::lock_guard lock(mutex_);
  const std::size_t removed = std::erase(sinks_, sink);
  hasSinks_ = !sinks_.empty();
  return removed > 0;
}

void Tracer::start(const std::string& path) {
  const std::lock_guard lock(mutex_);
  path_ = path;
}

void Tracer::write(int level, const std::string& line) {
  if (morva::HeldLog* const held = morva::HeldLog::ofThread(); held != nullptr) {
    held->add(level, line);
    return;
  }
  const std::lock_guard lock(mutex_);
  for (const auto& sink : sinks_) sink->write(level, line);
}

}  // namespace osmik
