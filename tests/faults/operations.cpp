#include "faults/operations.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <thread>

#include <gtest/gtest.h>

#include "bag/bag_bytes.h"
#include "kit/doctor/examination.h"
#include "kit/doctor/report_json.h"
#include "kit/doctor/salvage.h"
#include "morva/bag.h"
#include "morva/batch_task.h"
#include "support/recording_builder.h"
#include "support/temp_dir.h"
#include "task/recordings.h"
#include "tool/commands.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

/// Messages of every kind, with a calibration, and scans within the motor's times.
std::vector<RecordedMessage> allMessages() {
  std::vector<RecordedMessage> messages = carriedMessages();
  messages.push_back(logMessage("/raw_gnss_log", "$GNGGA\n"));
  messages.push_back(logMessage("/raw_gnss_log", "$GNRMC\n"));
  for (int i = 0; i < 2; ++i) {
    const std::int64_t timeUs = kStartUs + 100000 * i;
    std::ranges::copy(sampleMessages(timeUs), std::back_inserter(messages));
    messages.push_back(imageMessage("/camera_left/h264", timeUs, h264Picture()));
    messages.push_back(imageMessage("/camera_right/jpeg", timeUs, "\xFF\xD8 a picture"));
  }
  return messages;
}

std::vector<RecordedMessage> messagesWithout(const std::string& kind) {
  std::vector<RecordedMessage> messages = allMessages();
  std::erase_if(messages, [&](const RecordedMessage& message) {
    return message.topic.find(kind) != std::string::npos;
  });
  return messages;
}

std::string recordedBytes(const std::vector<RecordedMessage>& messages) {
  const TempDir dir;
  recordBag(dir / "x.kbag", messages);
  return readFile(dir / "x.kbag");
}

const std::string& bagBytes() {
  static const std::string bytes = recordedBytes(allMessages());
  return bytes;
}

/// Everything below a folder: files with their contents, folders with "/".
Products filesIn(const std::string& folder) {
  Products products;
  if (!fs::exists(folder)) return products;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = fs::relative(entry.path(), folder).string();
    if (entry.is_directory()) {
      products[name + "/"];
    } else {
      products[name] = readFile(entry.path());
    }
  }
  return products;
}

/// What a recording says, the times of its making left out; "damaged" where it is not sound.
std::string contentOf(const std::string& path) {
  if (!fs::exists(path)) return "missing";
  if (MorvaBag::checkAll(path) != 0) return "damaged";
  MorvaBag bag;
  if (bag.open(path, BagMode::kRead) != 0) return "not opened";
  std::string text;
  for (const TopicInfo& topic : bag.getInfo().topics) {
    for (const MsgIndex& index : bag.getView(topic.name, 0, -1).indexes) {
      std::string payload;
      const bool isRead = bag.readMessage(index, &payload);
      text += topic.name + ": " + (isRead ? payload : "unreadable") + "\n";
    }
  }
  return text;
}

// ---------------------------------------------------------------- recording, and what reads one

bool record(const std::string& folder, CompressionType compression) {
  const std::vector<RecordedMessage> messages = messagesWithout("camera");
  MorvaBag bag;
  bag.topics = {"/config_file",       "/project_data", "/raw_gnss_log", "/imu",
                "/lidar_to_platform", "/lidar",        "/magnetic",     "/gnss_data"};
  bag.compressionType = compression;
  if (bag.open(folder + "/x.kbag", BagMode::kWrite, "") != 0) return false;
  bool isWritten = true;
  for (const RecordedMessage& message : messages) {
    const std::string header = MorvaBag::makeMessageHeader(true, 1, message.timeUs, message.timeUs);
    isWritten =
        bag.writeMessage(message.topic, message.timeUs, header, message.payload) && isWritten;
  }
  return bag.close() && isWritten;
}

Operation recording(CompressionType compression) {
  return {.name = "record",
          .topic = {},
          .prepare = [](const std::string&) {},
          .run = [compression](const std::string& folder) { return record(folder, compression); },
          .products =
              [](const std::string& folder) {
                Products products = filesIn(folder);
                for (auto& [name, content] : products) content = contentOf(folder + "/" + name);
                return products;
              }};
}

void writeBag(const std::string& folder) { writeFile(folder + "/x.kbag", bagBytes()); }

/// The side file's content, without the time at which it was made.
std::string sideFileOf(const std::string& folder) {
  constexpr std::size_t kTime = 4096 + 8;
  constexpr std::size_t kTimeBytes = 8;
  std::string bytes = readFile(folder + "/x.kbag.index");
  return bytes.size() > kTime ? bytes.erase(kTime, kTimeBytes) : bytes;
}

Operation reindexing() {
  return {
      .name = "reindex",
      .topic = {},
      .prepare =
          [](const std::string& folder) {
            writeFile(folder + "/x.kbag", withoutClose(bagBytes()));
          },
      .run = [](const std::string& folder) { return MorvaBag::reindex(folder + "/x.kbag") == 0; },
      .products =
          [](const std::string& folder) {
            Products products = filesIn(folder);
            if (products.contains("x.kbag.index")) {
              products["x.kbag.index"] = sideFileOf(folder);
            }
            return products;
          }};
}

Operation checking() {
  return {
      .name = "check",
      .topic = {},
      .prepare = writeBag,
      .run = [](const std::string& folder) { return MorvaBag::checkAll(folder + "/x.kbag") == 0; },
      .products = filesIn};
}

/// Prints go to standard output, and are a product too.
thread_local std::string printed;  // NOLINT: the operations run one after another

template <typename Work>
void printing(const Work& work) {
  testing::internal::CaptureStdout();
  work();
  printed = testing::internal::GetCapturedStdout();
}

Operation telling() {
  return {.name = "info, view",
          .topic = {},
          .prepare = writeBag,
          .run =
              [](const std::string& folder) {
                printed.clear();
                MorvaBag bag;
                if (bag.open(folder + "/x.kbag", BagMode::kRead) != 0) return false;
                printing([&] {
                  kbag_info(&bag, true);
                  kbag_view(&bag, {}, 0, 0, false);
                });
                return bag.close();
              },
          .products =
              [](const std::string& folder) {
                Products products = filesIn(folder);
                products["printed"] = printed;
                return products;
              }};
}

// ---------------------------------------------------------------- export and unpack

/// An output of an earlier run lies there.
void writeBagAndOldOutput(const std::string& folder) {
  writeBag(folder);
  for (const char* sub :
       {"csv", "config", "jpeg/camera_right", "lidar_points", "calib/config", "images/camera_0"}) {
    fs::create_directories(folder + "/out/" + sub);
  }
  for (const char* name :
       {"csv/imu.csv", "csv/stale.csv", "config/imu.yaml", "imu.csv", "raw_gnss_log.txt",
        "lidar_points/stale.pcd", "jpeg/camera_right/1.jpg", "images/camera_0/1.jpg"}) {
    writeFile(folder + "/out/" + name, "old");
  }
}

Products outputIn(const std::string& folder) { return filesIn(folder + "/out"); }

using Command = std::function<void(const std::string& bag, const std::string& out)>;

Operation exporting(const std::string& name, const std::string& topic, const Command& command) {
  return {.name = name,
          .topic = topic,
          .prepare = writeBagAndOldOutput,
          .run =
              [command](const std::string& folder) {
                printing([&] { command(folder + "/x.kbag", folder + "/out"); });
                return printed.find("] error!") == std::string::npos;
              },
          .products = outputIn};
}

void addExports(std::vector<Operation>* all) {
  for (const char* topic :
       {"/imu", "/magnetic", "/lidar", "/lidar_to_platform", "/gnss_data", "/camera_left/h264",
        "/config_file", "/project_data", "/raw_gnss_log"}) {
    all->push_back(exporting("export", topic, [topic](const auto& bag, const auto& out) {
      kbag_export_frame_mt(bag, {topic}, out, 1);
    }));
    all->push_back(exporting("unpack -t 1", topic, [topic](const auto& bag, const auto& out) {
      kbag_unpack_data_mt(bag, {topic}, out, 1);
    }));
  }
  for (const char* topic : {"/camera_left/h264", "/camera_right/jpeg"}) {
    all->push_back(exporting("export --images", topic, [topic](const auto& bag, const auto& out) {
      kbag_export_frame_mt(bag, {topic}, out, 1, true);
    }));
  }
  for (const char* topic : {"/lidar", "/camera_left/h264"}) {
    all->push_back(exporting("unpack -t 2", topic, [topic](const auto& bag, const auto& out) {
      kbag_unpack_data_mt(bag, {topic}, out, 2);
    }));
  }
}

// ---------------------------------------------------------------- the batch task

template <typename Tool>
bool runTask(const std::string& folder) {
  Tool tool;
  if (!tool.Init({{{folder + "/p", folder + "/out"}}, folder + "/log", true, true})) return false;
  tool.StartTask();
  while (!tool.IsTaskFinished()) std::this_thread::yield();
  const bool isDone = tool.GetErrorCode() == BagTool::kSuccess && tool.GetFailedTopics().empty();
  tool.StopTask();
  return isDone;
}

template <typename Tool>
Operation batch(const std::string& name, const std::string& left) {
  const std::string bytes = recordedBytes(messagesWithout(left));
  return {.name = name,
          .topic = {},
          .prepare =
              [bytes](const std::string& folder) {
                writeBagAndOldOutput(folder);
                fs::create_directories(folder + "/p");
                writeFile(folder + "/p/" + kBagName, bytes);
              },
          .run = runTask<Tool>,
          .products = outputIn,
          .lines =
              [](const std::string& folder) {
                return fs::exists(folder + "/log") ? taskLog(folder + "/log")
                                                   : std::vector<std::string>();
              }};
}

// ---------------------------------------------------------------- doctor and salvage

bool goOn(double /*done*/) { return true; }

Operation examining() {
  return {.name = "kbagkit doctor",
          .topic = {},
          .prepare = writeBag,
          .run =
              [](const std::string& folder) {
                const doctor::Account account = doctor::examine(folder + "/x.kbag", goOn);
                printed = doctor::jsonOf({account}, 0);
                return account.verdict == doctor::Verdict::kSound;
              },
          .products =
              [](const std::string&) {
                return Products{{"account", printed}};
              }};
}

Operation salvaging(bool force) {
  return {.name = "kbagkit salvage",
          .topic = {},
          .prepare =
              [force](const std::string& folder) {
                std::string bytes = bagBytes();
                bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
                writeFile(folder + "/x.kbag", bytes);
                if (force) writeFile(folder + "/out.kbag", bagBytes());
              },
          .run =
              [force](const std::string& folder) {
                doctor::SalvageOptions options;
                options.inPath = folder + "/x.kbag";
                options.outPath = folder + "/out.kbag";
                options.force = force;
                const doctor::SalvageResult result = doctor::salvage(options, goOn);
                printed = doctor::jsonOf(result, options, 0);
                return result.isDone;
              },
          .products =
              [](const std::string& folder) {
                Products products = filesIn(folder);
                if (products.contains("out.kbag")) {
                  products["out.kbag"] = contentOf(folder + "/out.kbag");
                }
                products["printed"] = printed;
                return products;
              }};
}

std::vector<Operation> allOperations() {
  std::vector<Operation> all = {recording(CompressionType::kNone), recording(CompressionType::kLz4),
                                reindexing(), checking(), telling()};
  addExports(&all);
  all.push_back(batch<BagTool>("BagTool", "camera_right"));
  all.push_back(batch<DevBagTool>("DevBagTool", "camera"));
  all.push_back(examining());
  all.push_back(salvaging(false));
  all.push_back(salvaging(true));
  return all;
}

}  // namespace

const std::vector<Operation>& operations() {
  static const std::vector<Operation> all = allOperations();
  return all;
}

}  // namespace morva::test
