#include "tool/console.h"

#include <cstdio>

namespace morva {
namespace {

constexpr std::string_view kInkOff = "\033[0m\n";

std::string_view inkOn(Ink ink) {
  switch (ink) {
    case Ink::kYellow:
      return "\033[33m\033[1m";
    case Ink::kGreen:
      return "\033[32m\033[1m";
    case Ink::kCyan:
      return "\033[36m\033[1m";
  }
  return {};
}

}  // namespace

void Console::text(std::string_view text) {
  // A failed write is remembered by the stream; flush() reports it.
  std::fwrite(text.data(), 1, text.size(), stdout);
}

bool Console::flush() { return std::fflush(stdout) == 0 && std::ferror(stdout) == 0; }

void Console::inkedLine(Ink ink, const std::string& text) {
  std::string line(inkOn(ink));
  line += text;
  line += kInkOff;
  Console::text(line);
}

}  // namespace morva
