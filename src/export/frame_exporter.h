#ifndef MORVA_EXPORT_FRAME_EXPORTER_H_
#define MORVA_EXPORT_FRAME_EXPORTER_H_

#include <functional>
#include <string>
#include <vector>

#include "export/frame_loop.h"
#include "morva/bag.h"
#include "platform/file.h"
#include "platform/log.h"

namespace morva {

/// Turns the messages of one topic into ordinary files: a CSV table, a raw H.264 stream, JPEG
/// files, a flat log, or the files that the topic carries. docs/outputs.md describes them all.
///
/// Holds no state between calls. The directories of the outputs ("csv", "config", "project_data",
/// "h264", "jpeg/<camera>") must exist: the caller makes them. Messages that cannot be read or
/// parsed are skipped; the bag logs why a read failed.
///
/// The progress callback is told, after each message of the view, how many payload bytes (before
/// compression) the operation is done with; where it returns false the operation stops, which is no
/// failure.
///
/// Threads: calls for topics with different output files may run at the same time; the callback is
/// called on the thread of the call.
class FrameExporter {
 public:
  using Progress = std::function<bool(unsigned long)>;

  /// @param bag       Open for reading; not owned, must outlive the exporter.
  /// @param dir       Directory under which all outputs are created.
  /// @param progress  May be empty.
  FrameExporter(MorvaBag* bag, const std::string& dir, Progress progress = {});
  virtual ~FrameExporter() = default;

  /// Exports the messages of `view` into the topic's file, which replaces what has its name.
  /// @return False without a line for a topic that has no output; false after a log line when a
  ///         file cannot be created, a row cannot be written, or bytes were lost at the end. A
  ///         partly written file is left in place. Pictures and carried files that cannot be
  ///         written cost a warning each, and the result stays true.
  [[nodiscard]] bool exportFrame(const std::string& topic, const MorvaBag::View& view);

  /// Exports the pictures of a camera topic as they were recorded.
  /// @param type  "h264": one stream; "jpeg": one file per picture, named after its time stamp.
  /// @return Like exportFrame().
  [[nodiscard]] bool exportImage(const std::string& topic, const MorvaBag::View& view,
                                 const std::string& type);

  /// The file into which exportFrame() or exportImage() writes a topic, relative to the output
  /// directory; empty where the topic has none. ".gitkeep" is the empty placeholder of a directory
  /// that receives the outputs themselves.
  [[nodiscard]] static std::string frameFile(const std::string& topic);
  [[nodiscard]] static std::string imageFile(const std::string& topic);
  /// The directories of all files that imageFile() can name, each once.
  [[nodiscard]] static std::vector<std::string> imageDirectories();

  // The handlers behind the two calls above. Each writes into `file`, open for writing, and closes
  // it, so that a lost byte is noticed; after a failure it may still be open.
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
  /// Counts the messages of one operation and passes the total on.
  [[nodiscard]] MessageDone reportProgress() const;

  MorvaBag* bag_;
  std::string dir_;
  Progress progress_;
  Log log_{"FrameExporter"};
};

}  // namespace morva

#endif  // MORVA_EXPORT_FRAME_EXPORTER_H_
