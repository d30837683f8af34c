#include "export/data_exporter.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

#include "export/bytes_done.h"
#include "export/plain_files.h"

namespace morva {
namespace {

using Handler = bool (DataExporter::*)(osmik::File*, const MorvaBag::View&);

/// Many short rows reach the disk in large writes.
constexpr std::size_t kWriteBufferBytes = 0x1000000;

struct DataOutput {
  std::string_view topic;
  std::string_view file;  // relative to the output directory
  Handler handler;
};

// Both naming schemes of the cameras land in the same directories.
using DE = DataExporter;
constexpr std::array kDataOutputs = {
    DataOutput{"/imu", "imu.csv", &DE::unpackImuData},
    DataOutput{"/magnetic", "magnetic.csv", &DE::unpackMagneticData},
    DataOutput{"/hesai/pandar", "lidar_points/.gitkeep", &DE::unpackLidarData},
    DataOutput{"/livox/lidar", "lidar_points/.gitkeep", &DE::unpackLidarData},
    DataOutput{"/lidar", "lidar_points/.gitkeep", &DE::unpackLidarData},
    DataOutput{"/lidar_to_platform", "motor.csv", &DE::unpackEncoderData},
    DataOutput{"/gnss_data", "gnss.csv", &DE::unpackGnssData},
    DataOutput{"/camera_left/h264", "images/camera_0/.gitkeep", &DE::unpackCameraImage},
    DataOutput{"/camera_right/h264", "images/camera_1/.gitkeep", &DE::unpackCameraImage},
    DataOutput{"/camera_left_main/h264", "images/camera_0/.gitkeep", &DE::unpackCameraImage},
    DataOutput{"/camera_right_main/h264", "images/camera_1/.gitkeep", &DE::unpackCameraImage},
    DataOutput{"/config_file", "calib/config/.gitkeep", &DE::unpackConfigFiles},
    DataOutput{"/project_data", "project_data/.gitkeep", &DE::unpackProjectData},
    DataOutput{"/raw_gnss_log", "raw_gnss_log.txt", &DE::unpackRawDataLog},
    DataOutput{"/raw_ntrip_log", "raw_ntrip_log.data", &DE::unpackRawDataLog},
    DataOutput{"/raw_ppk_log", "raw_ppk_log.data", &DE::unpackRawDataLog},
};

/// The row of a topic; null where there is none.
const DataOutput* findOutput(const std::string& topic) {
  const auto* const output = std::ranges::find(kDataOutputs, topic, &DataOutput::topic);
  return output == kDataOutputs.end() ? nullptr : output;
}

}  // namespace

DataExporter::DataExporter(MorvaBag* bag, const std::string& dir, Progress progress, Crew* crew)
    : bag_(bag), dir_(dir), progress_(std::move(progress)), crew_(progress_ ? nullptr : crew) {}

std::string DataExporter::dataFile(const std::string& topic) {
  const DataOutput* const output = findOutput(topic);
  return output == nullptr ? std::string() : std::string(output->file);
}

MessageDone DataExporter::reportProgress() const { return sumOfBytes(progress_); }

bool DataExporter::exportData(const std::string& topic, const MorvaBag::View& view) {
  const DataOutput* const output = findOutput(topic);
  if (output == nullptr) {
    log_.error("no default file for topic: [%s]!", topic);
    return false;
  }
  const std::string path = dir_ + "/" + std::string(output->file);
  osmik::File file;
  if (!openNewFile(path, kWriteBufferBytes, &file)) {
    log_.error("create file(%s) error!", path);
    return false;
  }
  if (output->handler == nullptr) {
    log_.error("no export function for topic[%s]!", topic);
    return false;
  }
  return (this->*output->handler)(&file, view);
}

}  // namespace morva
