#include <array>
#include <memory>
#include <string>
#include <turbojpeg.h>
#include <utility>

#include "kit/simulate/picture_encoder.h"
#include "platform/log.h"

namespace morva::sim {

namespace {

constexpr int kQuality = 85;

struct HandleDeleter {
  // The handle is a pointer to void by another name; a failed release leaves nothing to be done.
  void operator()(void* handle) const { tjDestroy(handle); }
};
struct BufferDeleter {
  void operator()(unsigned char* buffer) const { tjFree(buffer); }
};
using HandlePtr = std::unique_ptr<void, HandleDeleter>;

const Log& log() {
  static const Log kLog("JpegEncoder");
  return kLog;
}

class JpegEncoder final : public PictureEncoder {
 public:
  explicit JpegEncoder(HandlePtr handle) : handle_(std::move(handle)) {}

  bool encode(const Picture& picture, std::string* data) override {
    std::array<const unsigned char*, 3> planes = {picture.y.data(), picture.u.data(),
                                                  picture.v.data()};
    unsigned char* bytes = nullptr;
    unsigned long size = 0;  // NOLINT(google-runtime-int): the library's type
    const int result =
        tjCompressFromYUVPlanes(handle_.get(), planes.data(), picture.width, nullptr,
                                picture.height, TJSAMP_420, &bytes, &size, kQuality, 0);
    const std::unique_ptr<unsigned char, BufferDeleter> buffer(bytes);
    if (result != 0) {
      log().error("encode picture error: %s!", tjGetErrorStr2(handle_.get()));
      return false;
    }
    data->assign(bytes, bytes + size);
    return true;
  }

 private:
  HandlePtr handle_;
};

}  // namespace

std::unique_ptr<PictureEncoder> makeJpegEncoder() {
  HandlePtr handle(tjInitCompress());
  if (handle == nullptr) {
    log().error("open encoder error!");
    return nullptr;
  }
  return std::make_unique<JpegEncoder>(std::move(handle));
}

}  // namespace morva::sim
