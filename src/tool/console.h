#ifndef MORVA_TOOL_CONSOLE_H_
#define MORVA_TOOL_CONSOLE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/str_util.h"

namespace morva {

enum class Ink : std::uint8_t {
  kYellow,  ///< usage, version, headings, summaries, failures
  kGreen,   ///< data rows, successes
  kCyan,    ///< notices
};

/// The results of commands, on standard output. Colours are part of the output format: they are
/// written whether or not a terminal is there to show them. Threads: any. A line is written by one
/// call, so that lines of several threads do not mix.
class Console {
 public:
  /// Writes a line in bold colour. Arguments follow StrUtil::format.
  template <typename... Args>
  static void line(Ink ink, const char* format, const Args&... args) {
    inkedLine(ink, osmik::StrUtil::format(format, args...));
  }

  /// Writes text as it stands.
  static void text(std::string_view text);

  /// Hands everything to the system.
  /// @return False when any of the process's output was lost, here or before.
  [[nodiscard]] static bool flush();

 private:
  static void inkedLine(Ink ink, const std::string& text);
};

}  // namespace morva

#endif  // MORVA_TOOL_CONSOLE_H_
