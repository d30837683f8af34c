// The outputs of FrameExporter that are written as they were recorded: streams, pictures, logs and
// carried files.

#include <cstdint>
#include <optional>
#include <string>

#include "export/frame_exporter.h"
#include "export/frame_loop.h"
#include "messages/msg_converter.h"
#include "platform/date_time.h"
#include "platform/file_path.h"
#include "platform/ignore_result.h"
#include "platform/str_util.h"

namespace morva {
namespace {

bool isAll(std::int64_t written, const std::string& data) {
  return written == static_cast<std::int64_t>(data.size());
}

/// Writes `data` into a new file, which replaces what has its name and follows no link.
/// @return Bytes written, -1 where bytes were lost; nothing where the file cannot be created.
std::optional<std::int64_t> writeNewFile(const std::string& path, const std::string& data) {
  ignoreResult(osmik::File::remove(path));  // where that fails, so does the exclusive creation
  osmik::File file;
  if (!file.open(path, osmik::OpenMode::kWriteNew)) return std::nullopt;
  const std::int64_t written = file.writeData(data.data(), static_cast<std::int64_t>(data.size()));
  return file.close() ? written : -1;
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
  forEachFrame(*bag_, view, &MsgConverter::fromImageMsgArray, append);

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
  forEachFrame(*bag_, view, &MsgConverter::fromImageMsgArray, writePicture);

  if (file->close()) return true;
  warn(last, -1);
  return false;
}

bool FrameExporter::makeRawDataLog(osmik::File* file, const MorvaBag::View& view) {
  const Log log("FrameExporter", "makeRawDataLog");
  const auto warn = [&log](std::int64_t result) {
    log.warning("write raw data error: %d!", result);
  };
  const auto append = [&](const RawDataFrame& frame) {
    const std::int64_t written = file->write(frame.data);
    if (!isAll(written, frame.data)) warn(written);
  };
  forEachFrame(*bag_, view, &MsgConverter::fromRawDataMsgArray, append);

  if (file->close()) return true;
  warn(-1);
  return false;
}

bool FrameExporter::makeConfigFiles(osmik::File* file, const MorvaBag::View& view) {
  return writeCarriedFiles(Log("FrameExporter", "makeConfigFiles"), file, view);
}

bool FrameExporter::makeProjectData(osmik::File* file, const MorvaBag::View& view) {
  return writeCarriedFiles(Log("FrameExporter", "makeProjectData"), file, view);
}

bool FrameExporter::writeCarriedFiles(const Log& log, osmik::File* placeholder,
                                      const MorvaBag::View& view) const {
  const auto warn = [&log](std::int64_t result) {
    log.warning("write file content error: %d!", result);
  };
  const std::string directory = osmik::FilePath(placeholder->path()).dirName();
  // The name comes from the recording. Its last component holds no "/", and no file can be created
  // under "", "." or "..": nothing is ever written outside of the directory.
  const auto writeCarried = [&](const FileFrame& frame) {
    const std::string path = directory + "/" + osmik::FilePath(frame.name).baseName();
    const std::optional<std::int64_t> written = writeNewFile(path, frame.content);
    if (!written) return log.warning("create file(%s) error!", path);
    if (!isAll(*written, frame.content)) warn(*written);
  };
  forEachFrame(*bag_, view, &MsgConverter::fromFileMsgArray, writeCarried);

  if (placeholder->close()) return true;
  warn(-1);
  return false;
}

}  // namespace morva
