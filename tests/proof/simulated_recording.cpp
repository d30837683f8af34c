#include "proof/simulated_recording.h"

#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>

#include "export/data_exporter.h"
#include "export/param_reader.h"
#include "messages/msg_converter.h"
#include "support/process.h"

namespace morva::test {
namespace {

void readDocument(const std::string& name, const std::string& text, SensorParameters* params) {
  ParamReader reader;
  const std::map<std::string, std::function<bool()>> readers = {
      {"imu.yaml", [&] { return reader.readImuParam(text, &params->imu); }},
      {"lidar.yaml", [&] { return reader.readLidarParam(text, &params->lidar); }},
      {"extrinsic_motor_lidar.yaml", [&] { return reader.readMotorParam(text, &params->motor); }},
      {"extrinsic_imu_motor.yaml",
       [&] { return reader.readImuMotorExtrinsicParam(text, &params->imuMotor); }},
      {"extrinsic_imu_lidar.yaml",
       [&] { return reader.readImuLidarExtrinsicParam(text, &params->imuLidar); }}};
  const auto found = readers.find(name);
  if (found != readers.end() && !found->second()) throw std::runtime_error("cannot read " + name);
}

}  // namespace

SimulatedRecording::SimulatedRecording(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {KBAGKIT_PROGRAM, "simulate", dir_ / "sim.kbag", "--truth",
                                      dir_ / "truth.json"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const ProcessResult result = runProcess(command);
  if (result.exitCode != 0) throw std::runtime_error("simulate failed: " + result.err);
  if (bag_.open(dir_ / "sim.kbag", BagMode::kRead) != 0) throw std::runtime_error("cannot open");
  truth_ = Truth::read(dir_ / "truth.json");
}

SensorParameters SimulatedRecording::calibration() const {
  SensorParameters params;
  for (const MsgIndex& index : view("/config_file").indexes) {
    std::string payload;
    if (!bag_.readMessage(index, &payload)) throw std::runtime_error("cannot read a message");
    for (const auto& file : MsgConverter::fromFileMsgArray(payload)) {
      readDocument(file->name, file->content, &params);
    }
  }
  return params;
}

std::string SimulatedRecording::exportClouds(bool corrected) {
  const std::string out = dir_ / (corrected ? "corrected" : "plain");
  std::string clouds = out + "/lidar_points";
  std::filesystem::create_directories(clouds);
  DataExporter exporter(&bag_, out, {});
  const bool done = corrected ? exporter.exportCorrectedLidarData(calibration(), view("/lidar"),
                                                                  view("/lidar_to_platform"))
                              : exporter.exportData("/lidar", view("/lidar"));
  if (!done) throw std::runtime_error("the lidar export failed");
  return clouds;
}

std::string SimulatedRecording::exportCorrectedImu() {
  DataExporter exporter(&bag_, dir_.path(), {});
  if (!exporter.exportCorrectedImuData(calibration(), view("/imu"))) {
    throw std::runtime_error("the IMU export failed");
  }
  return dir_ / "imu.csv";
}

}  // namespace morva::test
