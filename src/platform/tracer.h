#ifndef MORVA_PLATFORM_TRACER_H_
#define MORVA_PLATFORM_TRACER_H_

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/singleton.h"
#include "platform/str_util.h"

namespace osmik {

/// Where log lines go.
class TracerSink {
 public:
  virtual ~TracerSink() = default;
  /// Takes one line, without its line feed. Calls are serialised by the tracer.
  virtual void write(int level, std::string_view line) = 0;
};

/// Writes lines to standard error, so that standard output can be piped.
class STDSink final : public TracerSink {
 public:
  void write(int level, std::string_view line) override;
};

/// The process-wide log. Silent until a sink is added: a library does not print by itself.
/// Threads: every operation may be called from any thread at any time.
class Tracer {
 public:
  static constexpr int kInfo = 1;
  static constexpr int kWarning = 2;
  static constexpr int kError = 3;

  void addSink(std::shared_ptr<TracerSink> sink);
  /// @return False when it was not there.
  bool removeSink(const std::shared_ptr<TracerSink>& sink);

  /// Keeps `path` and does nothing with it: a file that everyone can write must not steer a
  /// program.
  void start(const std::string& path);

  /// Lines below `level` are dropped.
  void setLevel(int level) { level_ = level; }
  [[nodiscard]] bool isEnabled(int level) const { return level >= level_ && hasSinks_; }

  template <typename... Args>
  void print(int level, const char* format, const Args&... args) {
    if (isEnabled(level)) write(level, StrUtil::format(format, args...));
  }

 private:
  void write(int level, const std::string& line);

  std::atomic<int> level_ = kInfo;
  std::atomic<bool> hasSinks_ = false;
  std::mutex mutex_;
  std::vector<std::shared_ptr<TracerSink>> sinks_;
  std::string path_;
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_TRACER_H_
