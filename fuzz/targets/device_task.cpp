// The device task: calibration out of the recording, applied to what is exported.
#include <filesystem>
#include <string>
#include <unistd.h>

#include "export_run.h"
#include "morva/batch_task.h"
#include "target.h"

namespace morva::fuzz {
namespace {

constexpr const char* kBagName = "2024-01-31-235959.kbin";
constexpr useconds_t kPollUs = 50;

void runTask(const std::string& bag, const std::string& outDir) {
  const std::string project = outDir + "/project";
  std::filesystem::create_directory(project);
  std::filesystem::copy_file(bag, project + "/" + kBagName);
  if (std::filesystem::exists(bag + ".index")) {
    std::filesystem::copy_file(bag + ".index", project + "/" + kBagName + ".index");
  }
  DevBagTool tool;
  BagTool::PreprocessArgs args;
  args.projects.push_back({.projectPath = project, .outputPath = outDir + "/output"});
  args.logDir = outDir + "/log";
  expect(tool.Init(args), "a task cannot be prepared");
  tool.StartTask();
  while (!tool.IsTaskFinished()) {
    const int progress = tool.GetProgress();
    expect(progress >= 0 && progress <= 100, "a progress is no percentage");
    ::usleep(kPollUs);
  }
  expect(tool.GetErrorCode() == BagTool::kSuccess, "a task fails as a whole on a bag that opens");
  tool.StopTask();
}

}  // namespace

void runDeviceTask(std::string_view input) {
  exportInput(input, [](const std::string& bag, const std::vector<std::string>& /*topics*/,
                        const std::string& outDir) { runTask(bag, outDir); });
}

}  // namespace morva::fuzz
