// The module "kbag_pictures.so": pictures through OpenCV and its FFmpeg back end.

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>

#include "export/picture_decoder.h"
#include "export/pictures/payload_decoder.h"
#include "export/pictures/silence.h"

namespace morva {
namespace {

constexpr int kJpegQuality = 95;
/// A damaged stream may announce a size whose picture takes gigabytes.
constexpr double kLargestPicturePixels = 100e6;

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
  bool decodePayload(std::string_view payload, std::string* jpeg) override {
    static thread_local PayloadDecoder decoder;
    const Silence silence;
    return decoder.decode(payload, kJpegQuality, kLargestPicturePixels, jpeg);
  }

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

extern "C" __attribute__((visibility("default"))) morva::PictureDecoder* kbagPictureDecoder2() {
  static morva::OpenCvPictures decoder;
  return &decoder;
}
