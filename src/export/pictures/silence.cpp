#include "export/pictures/silence.h"

#include <atomic>
#include <cstdarg>
#include <mutex>

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>

extern "C" {
#include <libavutil/log.h>
}

namespace morva {
namespace {

/// What the process had set before the first of the decodings that are going on.
struct Settings {
  std::mutex mutex;
  cv::utils::logging::LogLevel level = cv::utils::logging::LOG_LEVEL_INFO;
  cv::ErrorCallback callback = nullptr;
  void* callbackUser = nullptr;
};

/// Decodings that are going on.
std::atomic<int> decodings = 0;

Settings& settings() {
  static Settings before;
  return before;
}

int ignoreError(int /*status*/, const char* /*function*/, const char* /*message*/,
                const char* /*file*/, int /*line*/, void* /*user*/) {
  return 0;
}

void printUnlessDecoding(void* source, int level, const char* format, va_list arguments) {
  if (decodings == 0) av_log_default_callback(source, level, format, arguments);
}

}  // namespace

Silence::Silence() {
  Settings& before = settings();
  const std::lock_guard lock(before.mutex);
  if (decodings++ > 0) return;
  before.level = cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  before.callback = cv::redirectError(ignoreError, nullptr, &before.callbackUser);
  // FFmpeg's log level is set by OpenCV whenever a stream is opened, so a callback does it there.
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_callback(printUnlessDecoding); });
}

Silence::~Silence() {
  Settings& before = settings();
  const std::lock_guard lock(before.mutex);
  if (--decodings > 0) return;
  cv::redirectError(before.callback, before.callbackUser);
  cv::utils::logging::setLogLevel(before.level);
}

}  // namespace morva
