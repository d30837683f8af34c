// Unpacks project folders in the background:  04_unpack_projects [--device] OUT_DIR PROJECT_DIR...
//
// A host program prepares a task, starts it, looks at it now and then, and may stop it at any time.
// Here a line is printed for every ten percent.

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "morva/batch_task.h"

namespace {

struct Arguments {
  bool device = false;
  std::string outDir;
  std::vector<std::string> projects;
};

bool parse(const std::vector<std::string>& words, Arguments* arguments) {
  std::size_t next = 0;
  arguments->device = !words.empty() && words[0] == "--device";
  if (arguments->device) ++next;
  if (words.size() < next + 2) return false;
  arguments->outDir = words[next];
  arguments->projects.assign(words.begin() + static_cast<std::ptrdiff_t>(next) + 1, words.end());
  return true;
}

morva::BagTool::PreprocessArgs describe(const Arguments& arguments) {
  morva::BagTool::PreprocessArgs args;
  args.logDir = arguments.outDir + "/log";
  for (const std::string& project : arguments.projects) {
    const std::string name = std::filesystem::path(project).filename().string();
    args.projects.push_back({project, arguments.outDir + "/" + name});
  }
  return args;
}

const char* explain(int errorCode) {
  switch (errorCode) {
    case morva::BagTool::kSuccess:
      return "done";
    case morva::BagTool::kNoBag:
      return "no project with a bag that can be opened";
    case morva::BagTool::kStopped:
      return "stopped";
    default:
      return "the task could not run";
  }
}

/// Prints the progress of a running task until it ends.
void follow(const morva::BagTool& task) {
  int printed = -1;
  while (!task.IsTaskFinished()) {
    const int tens = task.GetProgress() / 10;
    if (tens != printed) std::printf("%d %%\n", tens * 10);
    printed = tens;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

}  // namespace

int main(int argc, char** argv) {
  Arguments arguments;
  if (!parse({argv + 1, argv + argc}, &arguments)) {
    std::fprintf(stderr, "usage: %s [--device] OUT_DIR PROJECT_DIR...\n", argv[0]);
    return 2;
  }

  // The device task applies the recorded calibration, the plain one unpacks everything as it
  // stands.
  std::unique_ptr<morva::BagTool> task;
  if (arguments.device) {
    task = std::make_unique<morva::DevBagTool>();
  } else {
    task = std::make_unique<morva::BagTool>();
  }

  if (!task->Init(describe(arguments))) {
    std::fprintf(stderr, "no log can be written to %s/log\n", arguments.outDir.c_str());
    return 1;
  }
  task->StartTask();
  follow(*task);
  task->StopTask();  // nothing is left to stop, but this completes the log file

  const int code = task->GetErrorCode();
  for (const morva::BagTool::FailedTopic& failed : task->GetFailedTopics()) {
    std::printf("not unpacked whole: %s of %s\n", failed.topic.c_str(), failed.outputPath.c_str());
  }
  std::printf("%d %%, %s\n", task->GetProgress(), explain(code));
  return code == morva::BagTool::kSuccess && task->GetFailedTopics().empty() ? 0 : 1;
}
