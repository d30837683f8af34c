#ifndef MORVA_EXPORT_DATA_EXPORTER_H_
#define MORVA_EXPORT_DATA_EXPORTER_H_

#include <functional>
#include <string>

#include "export/crew.h"
#include "export/frame_loop.h"
#include "export/sensor_parameters.h"
#include "morva/bag.h"
#include "platform/file.h"
#include "platform/log.h"

namespace morva {

/// Unpacks the messages of one topic into the layout that processing tools read: a space-separated
/// table, a flat log, one point cloud per lidar frame, one picture per camera frame, or the files
/// that the topic carries. docs/outputs.md lists every file and column.
///
/// Holds no state between calls. The directories of the outputs ("lidar_points", "images/camera_0",
/// "images/camera_1", "calib/config", "project_data") must exist: the caller makes them. Messages
/// that cannot be read or parsed are skipped; the bag logs why a read failed.
///
/// Every operation tells the progress callback, after each message of the view, how many payload
/// bytes (before compression) it is done with: never less than before, in the end all of the view.
/// Where the callback returns false the operation stops; that is no failure. Threads: calls for
/// topics with different output files may run at the same time; the callback is called on the
/// thread of the call.
class DataExporter {
 public:
  using Progress = std::function<bool(unsigned long)>;

  /// @param bag       Open for reading; not owned, must outlive the exporter.
  /// @param dir       Directory under which all outputs are created.
  /// @param progress  May be empty.
  /// @param crew      Other threads that may take clouds and pictures off the calling one; may be
  ///                  null. Of no use with a progress callback, whose stop they would run ahead of.
  DataExporter(MorvaBag* bag, const std::string& dir, Progress progress, Crew* crew = nullptr);
  virtual ~DataExporter() = default;

  /// Unpacks the messages of `view` into the topic's file, which replaces what has its name.
  /// @return False after an error line for a topic that has no output, when its file cannot be
  /// created
  ///         or written, and when a picture cannot be decoded. A partly written table is left in
  ///         place. Clouds and carried files that cannot be written cost a line each, and the
  ///         result stays true.
  [[nodiscard]] bool exportData(const std::string& topic, const MorvaBag::View& view);

  /// Writes the table of "/imu" from samples corrected by `params`.
  /// @return False after an error line when "imu.csv" cannot be created or written.
  [[nodiscard]] bool exportCorrectedImuData(const SensorParameters& params,
                                            const MorvaBag::View& imuView);

  /// Writes every lidar frame as a point cloud in the IMU frame, each point moved by the motor's
  /// orientation at its own time. Both views are read once, in step, by the calling thread; ten
  /// workers transform and write, with a bounded number of frames in hand.
  /// @param motorView  Messages of the motor topic, over the same time; their order may be
  /// disturbed.
  /// @return False after an error line when the workers cannot be started or `params` has a
  /// transform
  ///         that cannot be inverted. Frames that cannot be transformed or written cost a line
  ///         each.
  [[nodiscard]] bool exportCorrectedLidarData(const SensorParameters& params,
                                              const MorvaBag::View& lidarView,
                                              const MorvaBag::View& motorView);

  /// The file into which exportData() writes a topic, relative to the output directory; empty where
  /// the topic has none. ".gitkeep" is the empty placeholder of a directory that receives the
  /// outputs themselves. Topics with the same file must not be unpacked at the same time.
  [[nodiscard]] static std::string dataFile(const std::string& topic);

  // The handlers behind exportData(). Each writes into `file`, open for writing, and closes it, so
  // that a lost byte is noticed; after a failure it may still be open.
  [[nodiscard]] bool unpackImuData(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool unpackMagneticData(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool unpackEncoderData(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool unpackGnssData(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool unpackLidarData(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool unpackCameraImage(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool unpackConfigFiles(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool unpackProjectData(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool unpackRawDataLog(osmik::File* file, const MorvaBag::View& view);

 private:
  /// Counts the messages of one operation and passes the total on; false to stop.
  [[nodiscard]] MessageDone reportProgress() const;

  MorvaBag* bag_;
  std::string dir_;
  Progress progress_;
  Crew* crew_;
  Log log_{"DataExporter"};
};

}  // namespace morva

#endif  // MORVA_EXPORT_DATA_EXPORTER_H_
