#include "kit/batch/progress_display.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "kit/console.h"
#include "platform/date_time.h"
#include "platform/str_util.h"
#include "platform/terminal.h"

namespace morva::batch {
namespace {

using osmik::StrUtil;

constexpr std::int64_t kRedrawUs = 200000;
constexpr const char* kClearLine = "\033[K";

osmik::Tracer& tracer() { return osmik::Singleton<osmik::Tracer>::getInstance(); }

const char* nameOf(Phase phase) {
  switch (phase) {
    case Phase::kWaiting:
      return "waiting";
    case Phase::kChecking:
      return "checking";
    case Phase::kUnpacking:
      return "unpacking";
    case Phase::kEnded:
      return "ended";
  }
  return "";
}

bool isAtWork(const ProjectState& state) {
  return state.phase == Phase::kChecking || state.phase == Phase::kUnpacking;
}

std::string clockText(double seconds) {
  const auto whole = std::llround(seconds);
  if (whole >= 3600) {
    return StrUtil::format("%d:%02d:%02d", whole / 3600, whole / 60 % 60, whole % 60);
  }
  return StrUtil::format("%d:%02d", whole / 60, whole % 60);
}

/// Cuts a line to the terminal's width, so that it takes up one row: whole characters of UTF-8.
std::string fitted(const std::string& line, int columns) {
  std::size_t bytes = 0;
  for (int characters = 0; bytes < line.size(); ++bytes) {
    const bool begins = (static_cast<unsigned char>(line[bytes]) & 0xC0U) != 0x80U;
    if (begins && ++characters >= columns) break;
  }
  return line.substr(0, bytes);
}

void print(const std::string& text) { std::fputs(text.c_str(), stderr); }

}  // namespace

/// Puts log lines above the lines that are written over.
class ProgressDisplay::LogSink final : public osmik::TracerSink {
 public:
  explicit LogSink(ProgressDisplay* display) : display_(display) {}
  void write(int /*level*/, std::string_view line) override {
    const std::lock_guard lock(display_->mutex_);
    display_->eraseLines();
    print(std::string(line) + "\n");
    display_->shownUs_ = 0;  // drawn again with the next update
  }

 private:
  ProgressDisplay* display_;
};

ProgressDisplay::ProgressDisplay(const std::vector<std::unique_ptr<ProjectState>>* states)
    : states_(*states),
      isTerminal_(osmik::isTerminal(osmik::StandardStream::kError)),
      printed_(states->size()),
      sink_(std::make_shared<LogSink>(this)) {
  tookLog_ = tracer().removeSink(kit::standardErrorSink());
  if (tookLog_) tracer().addSink(sink_);
}

ProgressDisplay::~ProgressDisplay() {
  if (tookLog_) {
    tracer().removeSink(sink_);
    tracer().addSink(kit::standardErrorSink());
  }
  if (!isTerminal_) printChanges();
  eraseLines();
}

void ProgressDisplay::update() {
  const std::lock_guard lock(mutex_);
  if (isTerminal_) {
    drawLines();
  } else {
    printChanges();
  }
}

std::string ProgressDisplay::describe(const ProjectState& state, std::int64_t nowUs) {
  const int percent = state.percent;
  std::string line = StrUtil::format("%s: %s %d %%", state.name, nameOf(state.phase), percent);
  const double seconds = static_cast<double>(nowUs - state.startUs) / 1e6;
  if (percent <= 0 || seconds <= 0.0) return line;
  const double part = percent / 100.0;
  const double megabytes = static_cast<double>(state.bagBytes) * part / 1e6;
  line += StrUtil::format(", %.1f MB/s, %s left", megabytes / seconds,
                          clockText(seconds * (1.0 - part) / part));
  return line;
}

void ProgressDisplay::drawLines() {
  const std::int64_t nowUs = osmik::Time::fromMono().toMicroSec();
  if (nowUs - shownUs_ < kRedrawUs) return;
  shownUs_ = nowUs;

  const int columns = osmik::terminalColumns(osmik::StandardStream::kError);
  std::string text;
  std::size_t lines = 1;
  std::size_t ended = 0;
  for (const auto& state : states_) {
    if (state->phase == Phase::kEnded) ++ended;
    if (!isAtWork(*state)) continue;
    text += fitted(describe(*state, nowUs), columns) + "\n";
    ++lines;
  }
  text += StrUtil::format("%d of %d projects ended\n", ended, states_.size());
  eraseLines();
  print(text);
  shownLines_ = lines;
}

void ProgressDisplay::eraseLines() {
  std::string text;
  for (; shownLines_ > 0; --shownLines_) text += std::string("\033[A\r") + kClearLine;
  print(text);
}

void ProgressDisplay::printChanges() {
  const std::int64_t nowUs = osmik::Time::fromMono().toMicroSec();
  for (std::size_t i = 0; i < states_.size(); ++i) {
    const ProjectState& state = *states_[i];
    if (state.phase == Phase::kWaiting) continue;
    const std::string about = StrUtil::format("%s %d", nameOf(state.phase), state.percent / 10);
    if (about == printed_[i]) continue;
    printed_[i] = about;
    print(isAtWork(state) ? describe(state, nowUs) + "\n" : state.name + ": ended\n");
  }
}

}  // namespace morva::batch
