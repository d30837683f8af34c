#include "support/log_capture.h"

#include <algorithm>
#include <regex>
#include <utility>

namespace morva::test {
namespace {

std::string withoutTimeAndLine(const std::string& line) {
  static const std::regex time(R"(^(<.>)\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} )");
  static const std::regex number(R"(^(<.>TIME \[[^\]]*,)L\d+\])");
  return std::regex_replace(std::regex_replace(line, time, "$1TIME "), number, "$1L0]");
}

}  // namespace

class LogCapture::Sink final : public osmik::TracerSink {
 public:
  void write(int /*level*/, std::string_view line) override {
    const std::lock_guard lock(mutex_);
    lines_.push_back(withoutTimeAndLine(std::string(line)));
  }
  [[nodiscard]] std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  void clear() {
    const std::lock_guard lock(mutex_);
    lines_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

LogCapture::LogCapture() : sink_(std::make_shared<Sink>()) {
  osmik::Singleton<osmik::Tracer>::getInstance().addSink(sink_);
}

LogCapture::~LogCapture() { osmik::Singleton<osmik::Tracer>::getInstance().removeSink(sink_); }

std::vector<std::string> LogCapture::lines() const { return sink_->lines(); }

std::vector<std::string> LogCapture::errors() const {
  std::vector<std::string> result = sink_->lines();
  std::erase_if(result, [](const std::string& line) { return !line.starts_with("<E>"); });
  return result;
}

bool LogCapture::contains(const std::string& line) const {
  const std::vector<std::string> all = sink_->lines();
  return std::ranges::find(all, line) != all.end();
}

void LogCapture::clear() { sink_->clear(); }

}  // namespace morva::test
