#include "kit/simulate/simulate.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "kbag_msgs.pb.h"
#include "kit/simulate/scene.h"
#include "kit/simulate/streams.h"
#include "kit/simulate/time_base.h"
#include "kit/simulate/truth.h"
#include "morva/bag.h"
#include "platform/file.h"
#include "platform/file_path.h"
#include "platform/log.h"
#include "platform/replace_file.h"
#include "platform/str_util.h"

namespace morva::sim {

namespace {

constexpr std::uint32_t kWriteBufferBytes = 1U << 20U;

// A file of ours that is removed unless it is kept.
class OwnFile {
 public:
  OwnFile() = default;
  OwnFile(const OwnFile&) = delete;
  OwnFile& operator=(const OwnFile&) = delete;
  ~OwnFile() {
    if (!path_.empty()) osmik::File::remove(path_);
  }

  void own(std::string path) { path_ = std::move(path); }
  void keep() { path_.clear(); }

 private:
  std::string path_;
};

std::string deviceRecord(const Options& options) {
  protix::kbag_msgs::DeviceInfo device;
  device.set_device_name("Simulated scanner");
  device.set_device_model("SIM-1");
  device.set_serial_number(osmik::StrUtil::format("SIM%010llu", options.seed % 10'000'000'000U));
  device.set_hardware_version("1.0");
  device.set_firmware_version("1.0.0");
  device.set_software_version(MorvaBag::getVersion());
  device.set_manufacture_date("2023-11-14");
  for (const char* sensor : {"lidar", "motor", "imu", "magnetometer", "gnss"}) {
    device.add_sensors(sensor);
  }
  if (options.cameras > 0) device.add_sensors("cameras");
  return device.SerializeAsString();
}

bool failTruth(const Options& options) {
  Log({}, "simulate")
      .error("create truth file(%s) error: %s!", options.truthPath, std::strerror(errno));
  return false;
}

bool isThere(const std::string& path) {
  std::error_code error;
  return std::filesystem::symlink_status(path, error).type() !=
         std::filesystem::file_type::not_found;
}

// Under a name beside the truth's, which it gets when it is whole.
bool openTruth(const Options& options, osmik::File* file, OwnFile* owner) {
  if (options.truthPath.empty()) return true;
  if (isThere(options.truthPath)) {
    errno = EEXIST;
    return failTruth(options);
  }
  const osmik::FilePath path(options.truthPath);
  const std::string temporary = path.dirName() + "/." + path.baseName() + ".tmp";
  file->setWMBuffer(kWriteBufferBytes);
  if (!osmik::File::remove(temporary) || !file->open(temporary, osmik::OpenMode::kWriteNew)) {
    return failTruth(options);
  }
  owner->own(temporary);
  return true;
}

bool publishTruth(const Options& options, osmik::File* file) {
  const std::string temporary = file->path();
  return (file->close() && osmik::publishFile(temporary, options.truthPath, false)) ||
         failTruth(options);
}

// True where a failed open has made the file, and so has to clear it away.
bool madeFile(int openCode) {
  return openCode == MorvaBag::kOpenOk || openCode == MorvaBag::kOpenMalformed ||
         openCode == MorvaBag::kOpenPrivateData;
}

bool openBag(const Options& options, std::vector<std::string> topics, MorvaBag* bag,
             OwnFile* owner) {
  bag->topics = std::move(topics);
  bag->compressionType = options.compression;
  bag->writeBufferSize = kWriteBufferBytes;
  bag->lossBound = options.lossBound;
  const int code = bag->open(options.bagPath, BagMode::kWrite, deviceRecord(options));
  if (madeFile(code)) owner->own(options.bagPath);
  return code == MorvaBag::kOpenOk;  // logged already
}

}  // namespace

bool simulate(const Options& options, const Progress& progress, std::vector<TopicSummary>* topics) {
  const Scene scene = makeScene(options);
  std::vector<StreamPtr> streams = makeStreams(scene);
  if (streams.empty()) return false;
  Recorder recorder(std::move(streams));

  // The owners come first: what they own is closed before it is removed.
  OwnFile truthOwner;
  OwnFile bagOwner;
  osmik::File truth;
  MorvaBag bag;
  if (!openTruth(options, &truth, &truthOwner) ||
      !openBag(options, recorder.topics(), &bag, &bagOwner)) {
    return false;
  }
  const std::int64_t endUs = kStartUs + durationUs(options.seconds);
  const bool recorded = recorder.record(&bag, endUs, progress);
  if (!bag.close() || !recorded) return false;

  *topics = recorder.summaries();
  if (truth.isOpen() && (!writeTruth(scene, *topics, &truth) || !publishTruth(options, &truth))) {
    return false;
  }
  truthOwner.keep();
  bagOwner.keep();
  return true;
}

}  // namespace morva::sim
