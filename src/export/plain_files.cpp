#include "export/plain_files.h"

#include "messages/msg_converter.h"
#include "platform/file_path.h"
#include "platform/new_file.h"

namespace morva {
namespace {

constexpr std::size_t kTopicBufferBytes = 0x1000000;

bool isAll(std::int64_t written, const std::string& data) {
  return written == static_cast<std::int64_t>(data.size());
}

}  // namespace

bool openTopicFile(const Log& log, const LogText& errorText, const std::string& path,
                   osmik::File* file) {
  if (osmik::openNewFile(path, kTopicBufferBytes, file)) return true;
  log.error(errorText, path);
  return false;
}

std::optional<std::int64_t> writeNewFile(const std::string& path, const std::string& data) {
  osmik::File file;
  if (!osmik::openNewFile(path, 0, &file)) return std::nullopt;
  const std::int64_t written = file.writeData(data.data(), static_cast<std::int64_t>(data.size()));
  const bool isClosed = file.close();
  // Half a file would pass for a whole one.
  if (!isClosed || !isAll(written, data)) osmik::File::remove(path);
  return isClosed ? written : -1;
}

bool writeRawData(const Log& log, const char* errorText, const MorvaBag& bag,
                  const MorvaBag::View& view, osmik::File* file, const MessageDone& done) {
  const auto append = [&](const RawDataFrame& frame) {
    const std::int64_t written = file->write(frame.data);
    if (!isAll(written, frame.data)) log.warning(errorText, written);
  };
  forEachFrame(log, bag, view, &MsgConverter::fromRawDataMsgArray, append, done);

  if (file->close()) return true;
  log.warning(errorText, -1);
  return false;
}

bool writeCarriedFiles(const Log& log, const MorvaBag& bag, const MorvaBag::View& view,
                       osmik::File* placeholder, const MessageDone& done) {
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
  forEachFrame(log, bag, view, &MsgConverter::fromFileMsgArray, writeCarried, done);

  if (placeholder->close()) return true;
  warn(-1);
  return false;
}

}  // namespace morva
