// The module "kbag_pictures.so": pictures through OpenCV and its FFmpeg back end.

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>

extern "C" {
#include <libavutil/log.h>
}

#include "export/picture_decoder.h"

namespace morva {
namespace {

constexpr int kJpegQuality = 95;
/// A damaged stream may announce a size whose picture takes gigabytes.
constexpr double kLargestPicturePixels = 100e6;

/// Decodings that are going on.
std::atomic<int> decodings = 0;

int ignoreError(int /*status*/, const char* /*function*/, const char* /*message*/,
                const char* /*file*/, int /*line*/, void* /*user*/) {
  return 0;
}

void printUnlessDecoding(void* source, int level, const char* format, va_list arguments) {
  if (decodings == 0) av_log_default_callback(source, level, format, arguments);
}

/// Keeps the libraries from writing to standard error while pictures are decoded. OpenCV's settings
/// are of the whole process, which may use it too: they are put back when the last decoding ends.
/// FFmpeg's log level is set by OpenCV whenever a stream is opened, so a callback does it there.
class Silence {
 public:
  Silence() {
    const std::lock_guard lock(mutex_);
    if (decodings++ > 0) return;
    level_ = cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    callback_ = cv::redirectError(ignoreError, nullptr, &callbackUser_);
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(printUnlessDecoding); });
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() {
    const std::lock_guard lock(mutex_);
    if (--decodings > 0) return;
    cv::redirectError(callback_, callbackUser_);
    cv::utils::logging::setLogLevel(level_);
  }

 private:
  static inline std::mutex mutex_;
  static inline cv::utils::logging::LogLevel level_ = cv::utils::logging::LOG_LEVEL_INFO;
  static inline cv::ErrorCallback callback_ = nullptr;
  static inline void* callbackUser_ = nullptr;
};

PictureResult decodeFirst(const std::string& path, std::string* jpeg) {
  cv::VideoCapture capture;
  if (!capture.open(path, cv::CAP_FFMPEG) || !capture.isOpened()) {
    return {PictureCode::kNotOpened, ""};
  }
  const double pixels =
      capture.get(cv::CAP_PROP_FRAME_WIDTH) * capture.get(cv::CAP_PROP_FRAME_HEIGHT);
  cv::Mat picture;
  if (pixels > kLargestPicturePixels || !capture.read(picture) || picture.empty()) {
    return {PictureCode::kNotRead, ""};
  }
  std::vector<std::uint8_t> bytes;
  if (!cv::imencode(".jpg", picture, bytes, {cv::IMWRITE_JPEG_QUALITY, kJpegQuality})) {
    return {PictureCode::kNotEncoded, ""};
  }
  jpeg->assign(bytes.begin(), bytes.end());
  return {};
}

class OpenCvPictures final : public PictureDecoder {
 public:
  PictureResult decode(const std::string& path, std::string* jpeg) override {
    try {
      const Silence silence;
      return decodeFirst(path, jpeg);
    } catch (const cv::Exception& exception) {
      return {PictureCode::kLibraryException, exception.what()};
    } catch (const std::exception& exception) {
      return {PictureCode::kStandardException, exception.what()};
    } catch (...) {
      return {PictureCode::kUnknownException, ""};
    }
  }
};

}  // namespace
}  // namespace morva

extern "C" __attribute__((visibility("default"))) morva::PictureDecoder* kbagPictureDecoder1() {
  static morva::OpenCvPictures decoder;
  return &decoder;
}
