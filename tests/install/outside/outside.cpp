// Uses every public header of an installed kbag:
//   outside record REC.kbag          makes a recording
//   outside read REC.kbag            prints its messages
//   outside export REC.kbag OUT_DIR  exports its topics
//   outside unpack REC.kbag OUT_DIR  unpacks them
//   outside task PROJECT_DIR OUT_DIR unpacks a project folder in the background
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "morva/bag.h"
#include "morva/batch_task.h"
#include "morva/export.h"
#include "morva/version.h"

#if KBAG_VERSION < 100
#error "The version of kbag is not known"
#endif

namespace {

// Three samples of an array message, of which each has a header with a time stamp and a scale, and
// an upward acceleration: 9.81 m/s^2.
std::string imuMessage() {
  std::string message;
  for (char i = 0; i < 3; ++i) {
    const std::string header{'\x08', static_cast<char>(i + 1), '\x10', '\xC8', '\x01'};  // 100
    std::string sample = "\x0A" + std::string(1, static_cast<char>(header.size())) + header;
    sample += std::string("\x20\xAA\x0F", 3);
    message += "\x0A" + std::string(1, static_cast<char>(sample.size())) + sample;
  }
  return message;
}

int record(const std::string& path) {
  morva::MorvaBag bag;
  bag.topics = {"/imu"};
  bag.compressionType = morva::CompressionType::kZstd;
  if (bag.open(path, morva::BagMode::kWrite) != morva::MorvaBag::kOpenOk) return 1;
  for (int i = 0; i < 4; ++i) {
    const std::string header = morva::MorvaBag::makeMessageHeader(true, 3, 1 + i, 3 + i);
    if (!bag.writeMessage("/imu", 1 + i, header, imuMessage())) return 1;
  }
  return bag.close() ? 0 : 1;
}

int read(const std::string& path) {
  morva::MorvaBag bag;
  if (bag.open(path, morva::BagMode::kRead) != morva::MorvaBag::kOpenOk) return 1;
  std::string payload;
  for (const morva::MsgIndex& index : bag.getView("/imu", 0, 0).indexes) {
    if (!bag.readMessage(index, &payload)) return 1;
    std::printf("%u samples, %zu bytes\n", index.count, payload.size());
  }
  return 0;
}

int exportAll(const std::string& path, const std::string& dir, morva::ExportLayout layout) {
  morva::MorvaBag bag;
  if (bag.open(path, morva::BagMode::kRead) != morva::MorvaBag::kOpenOk) return 1;
  morva::ExportOptions options;
  options.layout = layout;
  options.threads = 2;
  return morva::exportTopics(&bag, dir, options).code;
}

// A host that watches its task.
class Task : public morva::BagTool {
 public:
  ~Task() override { StopTask(); }
};

int runTask(const std::string& project, const std::string& out) {
  Task task;
  morva::BagTool::PreprocessArgs args;
  args.projects = {{project, out}};
  args.logDir = out + "/log";
  if (!task.Init(args)) return 1;
  task.StartTask();
  while (!task.IsTaskFinished()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  std::printf("%d %%\n", task.GetProgress());
  return task.GetErrorCode();
}

}  // namespace

int main(int argc, char** argv) {
  std::printf("kbag %s\n", morva::kVersion);
  const std::string command = argc > 2 ? argv[1] : "";
  if (command == "record") return record(argv[2]);
  if (command == "read") return read(argv[2]);
  if (argc != 4) return 2;
  if (command == "export") return exportAll(argv[2], argv[3], morva::ExportLayout::kTables);
  if (command == "unpack") return exportAll(argv[2], argv[3], morva::ExportLayout::kUnpacked);
  return command == "task" ? runTask(argv[2], argv[3]) : 2;
}
