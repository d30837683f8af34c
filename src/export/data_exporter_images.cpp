// The pictures of DataExporter: every recorded payload, decoded by itself, becomes a JPEG file.

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "export/data_exporter.h"
#include "export/picture_module.h"
#include "export/temporary_file.h"
#include "messages/msg_converter.h"
#include "platform/date_time.h"
#include "platform/file_path.h"

namespace morva {
namespace {

/// True for a stream with start codes. The decoder recognises many more formats, playlists that
/// name other files among them, and must not see any of those.
bool startsLikeH264(std::string_view payload) {
  const std::size_t zeros = payload.find_first_not_of('\0');
  return zeros != std::string_view::npos && zeros >= 2 && payload[zeros] == '\x01';
}

/// Unpacks the pictures of one topic.
class PictureUnpacker {
 public:
  PictureUnpacker(const Log& log, const std::string& directory)
      : log_(log), directory_(directory) {}

  /// @return False after an error line when the topic is to end here.
  [[nodiscard]] bool unpack(const ImageFrame& frame) const {
    try {
      return unpackFrame(frame);
    } catch (const std::exception& exception) {
      log_.error("standard exception: %s!", exception.what());
    } catch (...) {
      log_.error("unknown exception!");
    }
    return false;
  }

 private:
  [[nodiscard]] bool unpackFrame(const ImageFrame& frame) const {
    const osmik::Time time(static_cast<std::int64_t>(frame.collectTimestamp));
    const std::string stem = directory_ + "/" + time.toString();
    std::string jpeg;
    {
      TemporaryFile stream(stem + ".h264");
      if (!stream.isOpen()) {
        log_.warning("create file(%s) error!", stream.path());
        return true;
      }
      const std::int64_t written = stream.write(frame.data);
      if (written != static_cast<std::int64_t>(frame.data.size())) {
        log_.warning("write file content error: %d!", written);
      }
      if (!decode(frame.data, stem, stream.path(), &jpeg)) return false;
    }
    return writePicture(stem + ".jpg", jpeg);
  }

  [[nodiscard]] bool decode(const std::string& payload, const std::string& stem,
                            const std::string& path, std::string* jpeg) const {
    std::string reason;
    PictureDecoder* const decoder = PictureModule::decoder(&reason);
    if (decoder == nullptr) {
      log_.error("pictures cannot be decoded: %s!", reason);
      return false;
    }
    const PictureResult result = startsLikeH264(payload)
                                     ? decoder->decode(std::filesystem::absolute(path), jpeg)
                                     : PictureResult{PictureCode::kNotOpened, ""};
    return report(result, stem + ".jpg");
  }

  [[nodiscard]] bool report(const PictureResult& result, const std::string& imagePath) const {
    switch (result.code) {
      case PictureCode::kOk:
        return true;
      case PictureCode::kNotOpened:
        log_.error("VideoCapture open error!");
        return false;
      case PictureCode::kNotRead:
        log_.error("VideoCapture read error!");
        return false;
      case PictureCode::kNotEncoded:
        log_.error("encode %s error!", imagePath);
        return false;
      case PictureCode::kLibraryException:
        log_.error("opencv exception: %s!", result.text);
        return false;
      case PictureCode::kStandardException:
        log_.error("standard exception: %s!", result.text);
        return false;
      case PictureCode::kUnknownException:
        break;
    }
    log_.error("unknown exception!");
    return false;
  }

  /// The picture gets its name when it is whole.
  [[nodiscard]] bool writePicture(const std::string& path, const std::string& jpeg) const {
    TemporaryFile file(path + ".part");
    if (file.isOpen() && file.write(jpeg) == static_cast<std::int64_t>(jpeg.size()) &&
        file.renameTo(path)) {
      return true;
    }
    log_.error("write file(%s) error: %s!", path, std::generic_category().message(errno));
    return false;
  }

  const Log log_;
  const std::string directory_;
};

}  // namespace

bool DataExporter::unpackCameraImage(osmik::File* file, const MorvaBag::View& view) {
  const Log log("DataExporter", "unpackCameraImage");
  const PictureUnpacker unpacker(log, osmik::FilePath(file->path()).dirName());
  const auto unpack = [&unpacker](const ImageFrame& frame) { return unpacker.unpack(frame); };
  const bool allUnpacked = forEachFrameWhile(log, *bag_, view, &MsgConverter::fromImageMsgArray,
                                             unpack, reportProgress());
  if (file->close() && allUnpacked) return true;
  log.error("unpack images error!");
  return false;
}

}  // namespace morva
