// The outputs of FrameExporter that are written as they were recorded: streams, pictures, logs and
// carried files.

#include <cstdint>
#include <optional>
#include <string>

#include "export/frame_exporter.h"
#include "export/frame_loop.h"
#include "export/plain_files.h"
#include "messages/msg_converter.h"
#include "platform/date_time.h"
#include "platform/file_path.h"
#include "platform/str_util.h"

namespace morva {
namespace {

bool isAll(std::int64_t written, const std::string& data) {
  return written == static_cast<std::int64_t>(data.size());
}

/// The sample that a warning about pictures names.
struct PictureId {
  std::uint32_t seq = 0;
  std::uint64_t collectTimestamp = 0;
};

PictureId idOf(const ImageFrame& frame) { return {frame.seq, frame.collectTimestamp}; }

}  // namespace

bool FrameExporter::makeH264Files(osmik::File* file, const MorvaBag::View& view) {
  const Log log("FrameExporter", "makeH264Files");
  const auto warn = [&log](const PictureId& id, std::int64_t result) {
    log.warning("write h264 data(%u : %lld) error: %d!", id.seq, id.collectTimestamp, result);
  };
  PictureId last;
  const auto append = [&](const ImageFrame& frame) {
    last = idOf(frame);
    const std::int64_t written = file->write(frame.data);
    if (written < 1 || !isAll(written, frame.data)) warn(last, written);
  };
  forEachFrame(log, *bag_, view, &MsgConverter::fromImageMsgArray, append, reportProgress());

  if (file->close()) return true;
  warn(last, -1);
  return false;
}

bool FrameExporter::makeJpegFiles(osmik::File* file, const MorvaBag::View& view) {
  const Log log("FrameExporter", "makeJpegFiles");
  const auto warn = [&log](const PictureId& id, std::int64_t result) {
    log.warning("write jpeg data(%u : %lld) error: %d!", id.seq, id.collectTimestamp, result);
  };
  const std::string directory = osmik::FilePath(file->path()).dirName();
  PictureId last;
  const auto writePicture = [&](const ImageFrame& frame) {
    last = idOf(frame);
    const osmik::Time time(static_cast<std::int64_t>(frame.collectTimestamp));
    const std::string path = osmik::StrUtil::format("%s/%lld.jpeg", directory, time.toMicroSec());
    const std::optional<std::int64_t> written = writeNewFile(path, frame.data);
    if (!written) return log.warning("create file(%s) error!", path);
    if (!isAll(*written, frame.data)) warn(last, *written);
  };
  forEachFrame(log, *bag_, view, &MsgConverter::fromImageMsgArray, writePicture, reportProgress());

  if (file->close()) return true;
  warn(last, -1);
  return false;
}

bool FrameExporter::makeRawDataLog(osmik::File* file, const MorvaBag::View& view) {
  const Log log("FrameExporter", "makeRawDataLog");
  return writeRawData(log, "write raw data error: %d!", *bag_, view, file, reportProgress());
}

bool FrameExporter::makeConfigFiles(osmik::File* file, const MorvaBag::View& view) {
  return writeCarriedFiles(Log("FrameExporter", "makeConfigFiles"), *bag_, view, file,
                           reportProgress());
}

bool FrameExporter::makeProjectData(osmik::File* file, const MorvaBag::View& view) {
  return writeCarriedFiles(Log("FrameExporter", "makeProjectData"), *bag_, view, file,
                           reportProgress());
}

}  // namespace morva
