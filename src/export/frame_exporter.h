#ifndef MORVA_EXPORT_FRAME_EXPORTER_H_
#define MORVA_EXPORT_FRAME_EXPORTER_H_

#include <string>

#include "morva/bag.h"
#include "platform/file.h"
#include "platform/log.h"

namespace morva {

/// Turns the messages of one topic into ordinary files: a CSV table, a raw H.264 stream, JPEG files, a
/// flat log, or the files that the topic carries. docs/outputs.md lists every file and column.
///
/// Holds no state between calls. The directories of the outputs ("csv", "config", "project_data",
/// "h264", "jpeg/<camera>") must exist: the caller makes them.
/// Threads: calls for topics with different output files may run at the same time.
class FrameExporter {
 public:
  /// @param bag  Open for reading; not owned, must outlive the exporter.
  /// @param dir  Directory under which all outputs are created.
  FrameExporter(MorvaBag* bag, const std::string& dir);
  virtual ~FrameExporter() = default;

  /// Exports the messages of `view` into the topic's file.
  /// @return False without a line for a topic that has no output; false after a log line when a file
  ///         cannot be created or a row cannot be written. A partly written file is left in place.
  [[nodiscard]] bool exportFrame(const std::string& topic, const MorvaBag::View& view);

  /// Exports the pictures of a camera topic as they were recorded.
  /// @param type  "h264" (one stream) or "jpeg" (one file per picture).
  [[nodiscard]] bool exportImage(const std::string& topic, const MorvaBag::View& view,
                                 const std::string& type);

  // The handlers behind the two calls above; each writes into `file`, open for writing.
  [[nodiscard]] bool makeImuCsv(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool makeMagneticCsv(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool makeLidarCsv(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool makeEncoderCsv(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool makeGnssDataCsv(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool makeCameraImageCsv(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool makeH264Files(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool makeJpegFiles(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool makeRawDataLog(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool makeConfigFiles(osmik::File* file, const MorvaBag::View& view);
  [[nodiscard]] bool makeProjectData(osmik::File* file, const MorvaBag::View& view);

 private:
  MorvaBag* bag_;
  std::string dir_;
  Log log_{"FrameExporter"};
};

}  // namespace morva

#endif  // MORVA_EXPORT_FRAME_EXPORTER_H_
