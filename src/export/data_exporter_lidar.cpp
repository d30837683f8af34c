// The point clouds of DataExporter: one file per lidar frame, in the lidar's own coordinate frame
// or, corrected, in that of the IMU.

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <string>
#include <system_error>
#include <vector>

#include "export/cloud_workers.h"
#include "export/crew.h"
#include "export/data_exporter.h"
#include "export/motor_window.h"
#include "export/name_turns.h"
#include "export/pcd_writer.h"
#include "export/points_transformer.h"
#include "messages/msg_converter.h"
#include "platform/date_time.h"
#include "platform/file_path.h"
#include "platform/ignore_result.h"

namespace morva {
namespace {

/// Points further from the time of their cloud are taken for damaged: no motor records are sought
/// for them, which would mean to read all of the recording.
constexpr double kLongestScanS = 5.0;

/// The clouds are files; nothing else is left of them.
struct Nothing {};

std::string cloudPath(const std::string& directory, const PointCloudMsg& cloud) {
  return directory + "/" + osmik::Time(cloud.time).toString() + ".pcd";
}

struct TimeSpan {
  double fromS = 0.0;
  double toS = 0.0;
};

/// The times of a cloud's points, or of the cloud where it has none.
TimeSpan spanOf(const PointCloudMsg& cloud) {
  TimeSpan span{cloud.time + kLongestScanS, cloud.time - kLongestScanS};
  for (const PointIRT& point : cloud.cloud->points) {
    if (!(std::abs(point.timestamp - cloud.time) <= kLongestScanS)) continue;
    span.fromS = std::min(span.fromS, point.timestamp);
    span.toS = std::max(span.toS, point.timestamp);
  }
  return span.fromS <= span.toS ? span : TimeSpan{cloud.time, cloud.time};
}

}  // namespace

bool DataExporter::unpackLidarData(osmik::File* file, const MorvaBag::View& view) {
  const Log log("DataExporter", "unpackLidarData");
  const std::string directory = osmik::FilePath(file->path()).dirName();
  const MessageDone done = reportProgress();
  NameTurns turns;
  const auto writeClouds = [&](std::size_t number) {
    NameTurns::Turn turn(&turns, number);
    std::string payload;
    const auto frames = readFrames(log, *bag_, view.indexes[number],
                                   &MsgConverter::fromPointCloudMsgArray, &payload);
    std::vector<std::string> paths;
    for (const auto& frame : frames) paths.push_back(cloudPath(directory, *frame->cloud));
    turn.take(paths);
    for (std::size_t i = 0; i < frames.size(); ++i) {
      // A failure is logged; the next cloud may go well.
      ignoreResult(savePcd(log, paths[i], *frames[i]->cloud->cloud));
    }
    return Nothing{};
  };
  const auto count = [&](std::size_t number, Nothing /*written*/) {
    return !done || done(view.indexes[number]);
  };
  ignoreResult(forEachInOrder(crew_, view.indexes.size(), writeClouds, count));  // a stop is none

  if (file->close()) return true;
  log.error("save pcd error: %s(%s)!", file->path(), std::generic_category().message(errno));
  return false;
}

bool DataExporter::exportCorrectedLidarData(const SensorParameters& params,
                                            const MorvaBag::View& lidarView,
                                            const MorvaBag::View& motorView) {
  const Log log("DataExporter", "exportCorrectedLidarData");
  PointsTransformer transformer;
  if (!transformer.setParameters(params)) return false;
  CloudWorkers workers(log, transformer);
  if (!workers.start()) {
    log.error("task queue init(%d) error!", CloudWorkers::kWorkers);
    return false;
  }

  MotorWindow motors(log, *bag_, motorView);
  auto lidarIndex = lidarView.indexes.begin();
  const auto put = [&](const PointCloudFrame& frame) {
    const TimeSpan span = spanOf(*frame.cloud);
    workers.put(cloudPath(dir_ + "/lidar_points", *frame.cloud), frame.cloud,
                motors.around(span.fromS, span.toS, lidarIndex->chunkOffset));
  };
  const MessageDone progress = reportProgress();
  const auto done = [&](const MorvaBag::View::MsgIndex& index) {
    ++lidarIndex;
    if (!progress || progress(index)) return true;
    workers.stop();
    return false;
  };
  forEachFrame(log, *bag_, lidarView, &MsgConverter::fromPointCloudMsgArray, put, done);
  workers.wait();
  return true;
}

}  // namespace morva
