#include "export/data_exporter.h"

#include <array>
#include <utility>

#include "export/bytes_done.h"
#include "export/plain_files.h"
#include "export/topic_output.h"

namespace morva {
namespace {

using DataOutput = TopicOutput<DataExporter>;

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

}  // namespace

DataExporter::DataExporter(MorvaBag* bag, const std::string& dir, Progress progress, Crew* crew)
    : bag_(bag), dir_(dir), progress_(std::move(progress)), crew_(progress_ ? nullptr : crew) {}

std::string DataExporter::dataFile(const std::string& topic) {
  return fileOfOutput(kDataOutputs, topic);
}

MessageDone DataExporter::reportProgress() const { return sumOfBytes(progress_); }

bool DataExporter::exportData(const std::string& topic, const MorvaBag::View& view) {
  const DataOutput* const output = findOutput(kDataOutputs, topic);
  if (output == nullptr) {
    log_.error("no default file for topic: [%s]!", topic);
    return false;
  }
  const std::string path = dir_ + "/" + std::string(output->file);
  osmik::File file;
  if (!openTopicFile(log_, "create file(%s) error!", path, &file)) return false;
  if (output->handler == nullptr) {
    log_.error("no export function for topic[%s]!", topic);
    return false;
  }
  return (this->*output->handler)(&file, view);
}

}  // namespace morva
