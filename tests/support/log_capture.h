#ifndef MORVA_TESTS_SUPPORT_LOG_CAPTURE_H_
#define MORVA_TESTS_SUPPORT_LOG_CAPTURE_H_

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/tracer.h"

namespace morva::test {

/// Collects the log lines that are written while it lives.
///
/// Lines come with what changes from run to run taken out: the date and time reads "TIME", the
/// source line reads "L0": "<E>TIME [BagReader::open,L0] open file(x) error!".
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  [[nodiscard]] std::vector<std::string> lines() const;
  /// Lines of level error ("<E>") alone.
  [[nodiscard]] std::vector<std::string> errors() const;
  [[nodiscard]] bool contains(const std::string& line) const;
  void clear();

 private:
  class Sink;
  std::shared_ptr<Sink> sink_;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_LOG_CAPTURE_H_
