#ifndef MORVA_TESTS_TASK_PROBED_TOOL_H_
#define MORVA_TESTS_TASK_PROBED_TOOL_H_

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "morva/batch_task.h"
#include "platform/tracer.h"

namespace morva::test {

/// A task whose protected operations a test may call.
template <typename Tool>
class Probed : public Tool {
 public:
  using Tool::initLog;
  using Tool::logout;
  using Tool::stopRequested;
};

/// A task that runs until it is let go or stopped.
class HeldTool : public Probed<BagTool> {
 public:
  ~HeldTool() override { StopTask(); }
  void letGo() { letGo_ = true; }
  [[nodiscard]] bool wasStopped() const { return wasStopped_; }

 protected:
  void dataExportTask() override {
    while (!letGo_ && !stopRequested()) std::this_thread::yield();
    wasStopped_ = stopRequested();
  }

 private:
  std::atomic<bool> letGo_ = false;
  std::atomic<bool> wasStopped_ = false;
};

inline void waitUntilFinished(const BagTool& tool) {
  while (!tool.IsTaskFinished()) std::this_thread::yield();
}

/// Stops a task, from a thread of its own, in the moment in which a line that contains `text` is
/// logged: the thread that logs goes on once the request stands.
template <typename Tool>
class StopAtLine {
 public:
  StopAtLine(Probed<Tool>* tool, const std::string& text)
      : sink_(std::make_shared<Sink>(tool, text)) {
    osmik::Singleton<osmik::Tracer>::getInstance().addSink(sink_);
  }
  StopAtLine(const StopAtLine&) = delete;
  StopAtLine& operator=(const StopAtLine&) = delete;
  ~StopAtLine() { osmik::Singleton<osmik::Tracer>::getInstance().removeSink(sink_); }

  /// Waits until the call of StopTask() has returned. @return False when there was no such line.
  [[nodiscard]] bool waitUntilStopped() {
    if (!sink_->stopping.valid()) return false;
    sink_->stopping.wait();
    return true;
  }

 private:
  struct Sink final : osmik::TracerSink {
    Sink(Probed<Tool>* theTool, std::string theText) : tool(theTool), text(std::move(theText)) {}
    void write(int /*level*/, std::string_view line) override {
      if (stopping.valid() || line.find(text) == std::string_view::npos) return;
      stopping = std::async(std::launch::async, [this] { tool->StopTask(); });
      while (!tool->stopRequested()) std::this_thread::yield();
    }
    Probed<Tool>* tool;
    std::string text;
    std::future<void> stopping;
  };
  std::shared_ptr<Sink> sink_;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_TASK_PROBED_TOOL_H_
