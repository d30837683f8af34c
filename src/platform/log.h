#ifndef MORVA_PLATFORM_LOG_H_
#define MORVA_PLATFORM_LOG_H_

#include <string>

#include "platform/str_util.h"
#include "platform/tracer.h"

namespace morva {

/// A message format together with the place in the source that logs it. Made from the format text
/// by an implicit conversion, which captures the caller's function and line.
struct LogText {
  // NOLINTNEXTLINE(google-explicit-constructor): the point of the type
  LogText(const char* formatText, const char* callerFunction = __builtin_FUNCTION(),
          int callerLine = __builtin_LINE())
      : format(formatText), function(callerFunction), line(callerLine) {}

  const char* format;
  const char* function;
  int line;
};

/// Writes log lines of one class, or of free functions, to the process-wide tracer:
///
///   class:          <E>2026-01-31 23:59:59.123456 [BagReader::open,L42] open file(x.kbag) error!
///   free function:  <E>2026-01-31 23:59:59.123456 [main,L42] ...
///   information:    <I>2026-01-31 23:59:59.123456 [BagWriter::close] ...  (no line number)
///
/// The operation is the calling function unless the constructor names one, which helpers and static
/// operations do. Arguments follow StrUtil::format. Threads: any.
class Log {
 public:
  explicit Log(std::string className = {}, std::string function = {});

  template <typename... Args>
  void info(LogText text, const Args&... args) const {
    print(osmik::Tracer::kInfo, text, args...);
  }
  template <typename... Args>
  void warning(LogText text, const Args&... args) const {
    print(osmik::Tracer::kWarning, text, args...);
  }
  template <typename... Args>
  void error(LogText text, const Args&... args) const {
    print(osmik::Tracer::kError, text, args...);
  }

 private:
  template <typename... Args>
  void print(int level, const LogText& text, const Args&... args) const {
    if (!osmik::Singleton<osmik::Tracer>::getInstance().isEnabled(level)) return;
    write(level, text, osmik::StrUtil::format(text.format, args...));
  }
  void write(int level, const LogText& text, const std::string& message) const;

  std::string className_;
  std::string function_;
};

}  // namespace morva

#endif  // MORVA_PLATFORM_LOG_H_
