#include "limits/commands.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "faults/file_call_faults.h"
#include "hostile/allocation_watch.h"
#include "kit/doctor/examination.h"
#include "kit/doctor/report_json.h"
#include "kit/doctor/report_text.h"
#include "kit/doctor/salvage.h"
#include "morva/bag.h"
#include "morva/batch_task.h"
#include "platform/ignore_result.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "task/recordings.h"
#include "tool/commands.h"
#include "tool/console.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

std::string bagIn(const std::string& folder) { return folder + "/p/" + kBagName; }

bool goOn(double /*done*/) { return true; }

/// Results do not matter here, but that they come.
void check(const std::string& folder) { ignoreResult(MorvaBag::checkAll(bagIn(folder))); }

void reindex(const std::string& folder) { ignoreResult(MorvaBag::reindex(bagIn(folder))); }

void info(const std::string& folder) {
  MorvaBag bag;
  if (bag.openForInfo(bagIn(folder)) == 0) kbag_info(&bag, true);
}

void deviceInfo(const std::string& folder) {
  MorvaBag bag;
  if (bag.openForInfo(bagIn(folder)) == 0) kbag_info(&bag, false);
}

void view(const std::string& folder) {
  MorvaBag bag;
  if (bag.open(bagIn(folder), BagMode::kRead) == 0) kbag_view(&bag, {}, 0, 0, false);
}

std::vector<std::string> topicsIn(const std::string& folder) {
  MorvaBag bag;
  std::vector<std::string> topics;
  if (bag.openForInfo(bagIn(folder)) != 0) return topics;
  for (const TopicInfo& topic : bag.getInfo().topics) topics.push_back(topic.name);
  return topics;
}

void exportAll(const std::string& folder) {
  kbag_export_frame_mt(bagIn(folder), topicsIn(folder), folder + "/out", 1, true);
}

template <int kThreads>
void unpack(const std::string& folder) {
  kbag_unpack_data_mt(bagIn(folder), topicsIn(folder), folder + "/out", kThreads);
}

void examine(const std::string& folder) {
  const doctor::Account account = doctor::examine(bagIn(folder), goOn);
  ignoreResult(doctor::textOf(account));
  ignoreResult(doctor::jsonOf({account}, 0));
}

void salvage(const std::string& folder) {
  doctor::SalvageOptions options;
  options.inPath = bagIn(folder);
  options.outPath = folder + "/out/salvaged.kbag";
  const doctor::SalvageResult result = doctor::salvage(options, goOn);
  ignoreResult(doctor::jsonOf(result, options, 0));
}

template <typename Tool>
void runTask(const std::string& folder) {
  Tool tool;
  ASSERT_TRUE(tool.Init({{{folder + "/p", folder + "/out"}}, folder + "/out/log", true, true}));
  tool.StartTask();
  while (!tool.IsTaskFinished()) std::this_thread::yield();
  EXPECT_NE(tool.GetErrorCode(), BagTool::kNotStarted) << "out of memory";
}

}  // namespace

const std::vector<Command>& commands() {
  static const std::vector<Command> all = {{"check", check},
                                           {"reindex", reindex},
                                           {"info", info},
                                           {"pinfo", deviceInfo},
                                           {"view", view},
                                           {"export --images", exportAll},
                                           {"unpack -t 1", unpack<1>},
                                           {"unpack -t 8", unpack<8>},
                                           {"doctor", examine},
                                           {"salvage", salvage},
                                           {"batch", runTask<BagTool>},
                                           {"batch --device", runTask<DevBagTool>}};
  return all;
}

const Command& command(const std::string& name) {
  const auto found =
      std::ranges::find_if(commands(), [&](const Command& one) { return one.name == name; });
  if (found == commands().end()) throw std::invalid_argument(name);
  return *found;
}

Cost costOf(const Command& command, const std::string& bag, const std::string& folder) {
  fs::create_directories(folder + "/p");
  fs::create_directories(folder + "/out");
  writeFile(bagIn(folder), bag);
  Cost cost;
  const LogCapture log;
  testing::internal::CaptureStdout();
  {
    const FileCallFaults count(folder,
                               {.kinds = kAllCalls, .first = std::numeric_limits<int>::max()});
    resetLargestAllocation();
    const std::size_t before = resetMostLiveMemory();
    command.run(folder);
    ignoreResult(Console::flush());
    cost.largest = largestAllocation();
    cost.live = mostLiveMemory() - before;
    cost.bytesRead = bytesRead();
    cost.calls = count.calls();
  }
  cost.printed = testing::internal::GetCapturedStdout();
  cost.errors = log.errors();
  return cost;
}

}  // namespace morva::test
