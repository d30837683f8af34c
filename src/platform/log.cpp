#include "platform/log.h"

#include <utility>

#include "platform/date_time.h"

namespace morva {

Log::Log(std::string className, std::string function)
    : className_(std::move(className)), function_(std::move(function)) {}

void Log::write(int level, const LogText& text, const std::string& message) const {
  const char* const tag = level >= osmik::Tracer::kError     ? "<E>"
                          : level == osmik::Tracer::kWarning ? "<W>"
                                                             : "<I>";
  std::string place = className_.empty() ? "" : className_ + "::";
  place += function_.empty() ? text.function : function_;
  if (level != osmik::Tracer::kInfo) place += osmik::StrUtil::format(",L%d", text.line);
  osmik::Singleton<osmik::Tracer>::getInstance().print(
      level, "%s%s [%s] %s", tag, osmik::DateTime::getDateTime().toString(), place, message);
}

}  // namespace morva
