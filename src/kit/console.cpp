#include "kit/console.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/terminal.h"

namespace morva::kit {

namespace {

bool hasColour() {
  const char* noColour = std::getenv("NO_COLOR");
  const bool refused = noColour != nullptr && *noColour != '\0';
  return !refused && osmik::isTerminal(osmik::StandardStream::kOutput);
}

}  // namespace

std::string heading(std::string_view text) { return coloured(text, 1); }

std::string coloured(std::string_view text, int code) {
  static const bool kColour = hasColour();
  if (!kColour) return std::string(text);
  return "\033[" + std::to_string(code) + "m" + std::string(text) + "\033[0m";
}

std::string printable(std::string text) {
  std::ranges::replace_if(
      text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; }, '?');
  return text;
}

bool print(std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

const std::shared_ptr<osmik::TracerSink>& standardErrorSink() {
  static const std::shared_ptr<osmik::TracerSink> kSink = std::make_shared<osmik::STDSink>();
  return kSink;
}

ProgressLine::ProgressLine(std::string what)
    : what_(std::move(what)), visible_(osmik::isTerminal(osmik::StandardStream::kError)) {}

ProgressLine::~ProgressLine() {
  if (shownPercent_ >= 0) std::fputs("\r\033[K", stderr);
}

void ProgressLine::show(double done) {
  const int percent = static_cast<int>(done * 100.0);
  if (!visible_ || percent == shownPercent_) return;
  shownPercent_ = percent;
  std::fprintf(stderr, "\r%s %3d %%", what_.c_str(), percent);
}

}  // namespace morva::kit
