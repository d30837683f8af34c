#include "export/frame_exporter.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "export/bytes_done.h"
#include "export/plain_files.h"
#include "export/topic_output.h"
#include "platform/file_path.h"

namespace morva {
namespace {

using FrameOutput = TopicOutput<FrameExporter>;

using FE = FrameExporter;
constexpr std::array kFrameOutputs = {
    FrameOutput{"/imu", "csv/imu.csv", &FE::makeImuCsv},
    FrameOutput{"/magnetic", "csv/magnetic.csv", &FE::makeMagneticCsv},
    FrameOutput{"/hesai/pandar", "csv/lidar.csv", &FE::makeLidarCsv},
    FrameOutput{"/livox/lidar", "csv/lidar.csv", &FE::makeLidarCsv},
    FrameOutput{"/lidar", "csv/lidar.csv", &FE::makeLidarCsv},
    FrameOutput{"/lidar_to_platform", "csv/encoder.csv", &FE::makeEncoderCsv},
    FrameOutput{"/gnss_data", "csv/gnss_data.csv", &FE::makeGnssDataCsv},
    FrameOutput{"/camera_left/jpeg", "csv/camera_left_jpeg.csv", &FE::makeCameraImageCsv},
    FrameOutput{"/camera_left/h264", "csv/camera_left_h264.csv", &FE::makeCameraImageCsv},
    FrameOutput{"/camera_center/jpeg", "csv/camera_center_jpeg.csv", &FE::makeCameraImageCsv},
    FrameOutput{"/camera_center/h264", "csv/camera_center_h264.csv", &FE::makeCameraImageCsv},
    FrameOutput{"/camera_right/jpeg", "csv/camera_right_jpeg.csv", &FE::makeCameraImageCsv},
    FrameOutput{"/camera_right/h264", "csv/camera_right_h264.csv", &FE::makeCameraImageCsv},
    FrameOutput{"/camera_left_main/jpeg", "csv/camera_left_main_jpeg.csv", &FE::makeCameraImageCsv},
    FrameOutput{"/camera_left_main/h264", "csv/camera_left_main_h264.csv", &FE::makeCameraImageCsv},
    FrameOutput{"/camera_left_seco/jpeg", "csv/camera_left_seco_jpeg.csv", &FE::makeCameraImageCsv},
    FrameOutput{"/camera_left_seco/h264", "csv/camera_left_seco_h264.csv", &FE::makeCameraImageCsv},
    FrameOutput{"/camera_right_main/jpeg", "csv/camera_right_main_jpeg.csv",
                &FE::makeCameraImageCsv},
    FrameOutput{"/camera_right_main/h264", "csv/camera_right_main_h264.csv",
                &FE::makeCameraImageCsv},
    FrameOutput{"/camera_right_seco/jpeg", "csv/camera_right_seco_jpeg.csv",
                &FE::makeCameraImageCsv},
    FrameOutput{"/camera_right_seco/h264", "csv/camera_right_seco_h264.csv",
                &FE::makeCameraImageCsv},
    FrameOutput{"/config_file", "config/.gitkeep", &FE::makeConfigFiles},
    FrameOutput{"/project_data", "project_data/.gitkeep", &FE::makeProjectData},
    FrameOutput{"/raw_gnss_log", "raw_gnss_log.txt", &FE::makeRawDataLog},
    FrameOutput{"/raw_ntrip_log", "raw_ntrip_log.data", &FE::makeRawDataLog},
    FrameOutput{"/raw_ppk_log", "raw_ppk_log.data", &FE::makeRawDataLog},
};

struct ImageOutput {
  std::string_view topic;
  std::string_view file;  // relative to the output directory
};

constexpr std::array kImageOutputs = {
    ImageOutput{"/camera_left/jpeg", "jpeg/camera_left/.gitkeep"},
    ImageOutput{"/camera_left/h264", "h264/camera_left.h264"},
    ImageOutput{"/camera_center/jpeg", "jpeg/camera_center/.gitkeep"},
    ImageOutput{"/camera_center/h264", "h264/camera_center.h264"},
    ImageOutput{"/camera_right/jpeg", "jpeg/camera_right/.gitkeep"},
    ImageOutput{"/camera_right/h264", "h264/camera_right.h264"},
    ImageOutput{"/camera_left_main/jpeg", "jpeg/camera_left_main/.gitkeep"},
    ImageOutput{"/camera_left_main/h264", "h264/camera_left_main.h264"},
    ImageOutput{"/camera_left_seco/jpeg", "jpeg/camera_left_seco/.gitkeep"},
    ImageOutput{"/camera_left_seco/h264", "h264/camera_left_seco.h264"},
    ImageOutput{"/camera_right_main/jpeg", "jpeg/camera_right_main/.gitkeep"},
    ImageOutput{"/camera_right_main/h264", "h264/camera_right_main.h264"},
    ImageOutput{"/camera_right_seco/jpeg", "jpeg/camera_right_seco/.gitkeep"},
    ImageOutput{"/camera_right_seco/h264", "h264/camera_right_seco.h264"},
};

}  // namespace

FrameExporter::FrameExporter(MorvaBag* bag, const std::string& dir, Progress progress)
    : bag_(bag), dir_(dir), progress_(std::move(progress)) {}

MessageDone FrameExporter::reportProgress() const { return sumOfBytes(progress_); }

std::string FrameExporter::frameFile(const std::string& topic) {
  return fileOfOutput(kFrameOutputs, topic);
}

std::string FrameExporter::imageFile(const std::string& topic) {
  return fileOfOutput(kImageOutputs, topic);
}

std::vector<std::string> FrameExporter::imageDirectories() {
  std::vector<std::string> directories;
  for (const ImageOutput& output : kImageOutputs) {
    const std::string directory = osmik::FilePath(std::string(output.file)).dirName();
    if (std::ranges::find(directories, directory) == directories.end()) {
      directories.push_back(directory);
    }
  }
  return directories;
}

bool FrameExporter::exportFrame(const std::string& topic, const MorvaBag::View& view) {
  const FrameOutput* const output = findOutput(kFrameOutputs, topic);
  if (output == nullptr) return false;

  const std::string path = dir_ + "/" + std::string(output->file);
  osmik::File file;
  if (!openTopicFile(log_, "create file(%s) error!", path, &file)) return false;
  if (output->handler == nullptr) {
    log_.error("no export function for topic[%s]!", topic);
    return false;
  }
  return (this->*output->handler)(&file, view);
}

bool FrameExporter::exportImage(const std::string& topic, const MorvaBag::View& view,
                                const std::string& type) {
  const ImageOutput* const output = findOutput(kImageOutputs, topic);
  if (output == nullptr) return false;

  const std::string path = dir_ + "/" + std::string(output->file);
  osmik::File file;
  if (!openTopicFile(log_, "create file(%s) error!", path, &file)) return false;
  if (type == "jpeg") return makeJpegFiles(&file, view);
  if (type == "h264") return makeH264Files(&file, view);
  log_.error("invalid image type: %s!", type);
  return false;
}

}  // namespace morva
