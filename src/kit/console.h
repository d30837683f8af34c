#ifndef MORVA_KIT_CONSOLE_H_
#define MORVA_KIT_CONSOLE_H_

#include <memory>
#include <string>
#include <string_view>

#include "platform/tracer.h"

namespace morva::kit {

/// Text in bold, where standard output shows colours: on a terminal, unless NO_COLOR is set.
[[nodiscard]] std::string heading(std::string_view text);

/// Text in a colour, a foreground code of the terminal's such as 31 (red), under the same
/// conditions.
[[nodiscard]] std::string coloured(std::string_view text, int code);

/// Text with "?" for control characters: that of a damaged file must not steer the terminal.
[[nodiscard]] std::string printable(std::string text);

/// Writes to standard output. @return False where it takes no more: nobody reads it, or its disk is
/// full.
[[nodiscard]] bool print(std::string_view text);

/// Where the program's log lines go. A command that writes over lines of standard error takes it
/// away from the log for as long.
[[nodiscard]] const std::shared_ptr<osmik::TracerSink>& standardErrorSink();

/// Shows how far a command is, as a percentage on a line of standard error that is written over
/// again; nothing where that is no terminal. The line is cleared in the end.
class ProgressLine {
 public:
  explicit ProgressLine(std::string what);
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  ~ProgressLine();

  /// @param done  0 to 1.
  void show(double done);

 private:
  std::string what_;
  bool visible_;
  int shownPercent_ = -1;
};

}  // namespace morva::kit

#endif  // MORVA_KIT_CONSOLE_H_
