// The pictures of DataExporter: every recorded payload, decoded by itself, becomes a JPEG file.

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "export/crew.h"
#include "export/data_exporter.h"
#include "export/picture_module.h"
#include "export/temporary_file.h"
#include "messages/msg_converter.h"
#include "platform/date_time.h"
#include "platform/file_path.h"
#include "platform/ignore_result.h"

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

  /// Decodes in memory, without a trace. Threads: any number at the same time.
  /// @return Nothing for a payload that is not one undamaged picture, or where decoding fails.
  [[nodiscard]] static std::optional<std::string> decodeInMemory(const ImageFrame& frame) {
    try {
      std::string reason;
      PictureDecoder* const decoder = PictureModule::decoder(&reason);
      std::string jpeg;
      if (decoder != nullptr && startsLikeH264(frame.data) &&
          decoder->decodePayload(frame.data, &jpeg)) {
        return jpeg;
      }
    } catch (...) {  // unpack() meets it again, and tells
    }
    return std::nullopt;
  }

  /// @param jpeg  What decodeInMemory() made of the frame.
  /// @return False after an error line when the topic is to end here.
  [[nodiscard]] bool unpack(const ImageFrame& frame, const std::optional<std::string>& jpeg) const {
    try {
      return (jpeg && writeDecoded(stemOf(frame), *jpeg)) || unpackByFile(frame);
    } catch (const std::exception& exception) {
      log_.error("standard exception: %s!", exception.what());
    } catch (...) {
      log_.error("unknown exception!");
    }
    return false;
  }

 private:
  /// The outputs of a frame without their endings.
  [[nodiscard]] std::string stemOf(const ImageFrame& frame) const {
    const osmik::Time time(static_cast<std::int64_t>(frame.collectTimestamp));
    return directory_ + "/" + time.toString();
  }

  /// @return False, with nothing written, where a failure is to be met and told by unpackByFile().
  [[nodiscard]] static bool writeDecoded(const std::string& stem, const std::string& jpeg) {
    std::error_code error;
    const std::filesystem::file_status stream =
        std::filesystem::symlink_status(stem + ".h264", error);
    return stream.type() == std::filesystem::file_type::not_found &&
           writeWhole(stem + ".jpg", jpeg) == 0;
  }

  [[nodiscard]] bool unpackByFile(const ImageFrame& frame) const {
    const std::string stem = stemOf(frame);
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
  /// @return 0, or the system's reason.
  [[nodiscard]] static int writeWhole(const std::string& path, const std::string& jpeg) {
    TemporaryFile file(path + ".part");
    const bool written = file.isOpen() &&
                         file.write(jpeg) == static_cast<std::int64_t>(jpeg.size()) &&
                         file.renameTo(path);
    return written ? 0 : errno;
  }

  [[nodiscard]] bool writePicture(const std::string& path, const std::string& jpeg) const {
    const int reason = writeWhole(path, jpeg);
    if (reason == 0) return true;
    log_.error("write file(%s) error: %s!", path, std::generic_category().message(reason));
    return false;
  }

  const Log log_;
  const std::string directory_;
};

/// The frames of a message, with what decodeInMemory() made of each.
struct DecodedMessage {
  MsgConverter::Frames<ImageFrame> frames;
  std::vector<std::optional<std::string>> jpegs;
};

}  // namespace

bool DataExporter::unpackCameraImage(osmik::File* file, const MorvaBag::View& view) {
  const Log log("DataExporter", "unpackCameraImage");
  const PictureUnpacker unpacker(log, osmik::FilePath(file->path()).dirName());
  const MessageDone done = reportProgress();
  const auto decode = [&](std::size_t number) {
    std::string payload;
    DecodedMessage message{
        readFrames(log, *bag_, view.indexes[number], &MsgConverter::fromImageMsgArray, &payload),
        {}};
    for (const auto& frame : message.frames) {
      message.jpegs.push_back(PictureUnpacker::decodeInMemory(*frame));
    }
    return message;
  };
  bool allUnpacked = true;
  const auto write = [&](std::size_t number, const DecodedMessage& message) {
    for (std::size_t i = 0; i < message.frames.size() && allUnpacked; ++i) {
      allUnpacked = unpacker.unpack(*message.frames[i], message.jpegs[i]);
    }
    return allUnpacked && (!done || done(view.indexes[number]));
  };
  ignoreResult(forEachInOrder(crew_, view.indexes.size(), decode, write));  // a stop is no failure
  if (file->close() && allUnpacked) return true;
  log.error("unpack images error!");
  return false;
}

}  // namespace morva
