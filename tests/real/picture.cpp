#include "real/picture.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <turbojpeg.h>

#include "kit/simulate/av_pointers.h"

namespace morva::test {
namespace {

struct JpegDeleter {
  void operator()(void* handle) const { tjDestroy(handle); }
};

void require(bool good, const char* what) {
  if (!good) throw std::runtime_error(what);
}

sim::FramePtr decodeFrame(const std::string& payload) {
  const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_H264);
  require(codec != nullptr, "no H.264 decoder");
  const sim::ContextPtr context(avcodec_alloc_context3(codec));
  context->thread_count = 1;
  require(avcodec_open2(context.get(), codec, nullptr) == 0, "no H.264 decoder");
  const sim::PacketPtr packet(av_packet_alloc());
  require(av_new_packet(packet.get(), static_cast<int>(payload.size())) == 0, "no memory");
  std::ranges::copy(payload, packet->data);
  require(avcodec_send_packet(context.get(), packet.get()) == 0, "not an H.264 picture");
  require(avcodec_send_packet(context.get(), nullptr) == 0, "not an H.264 picture");
  sim::FramePtr frame(av_frame_alloc());
  require(avcodec_receive_frame(context.get(), frame.get()) == 0, "no picture in a payload");
  return frame;
}

std::uint8_t toByte(double value) {
  return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

/// Video levels (luma 16 to 235, chroma 16 to 240) in BT.601 colours.
void appendPixel(double luma, double blueness, double redness, std::vector<std::uint8_t>* rgb) {
  const double grey = (luma - 16.0) * 255.0 / 219.0;
  const double b = (blueness - 128.0) * 255.0 / 224.0;
  const double r = (redness - 128.0) * 255.0 / 224.0;
  rgb->push_back(toByte(grey + 1.402 * r));
  rgb->push_back(toByte(grey - 0.344136 * b - 0.714136 * r));
  rgb->push_back(toByte(grey + 1.772 * b));
}

}  // namespace

Picture decodeH264(const std::string& payload) {
  const sim::FramePtr frame = decodeFrame(payload);
  require(frame->format == AV_PIX_FMT_YUV420P, "not the usual kind of H.264 picture");
  Picture picture{frame->width, frame->height, {}};
  const auto sample = [&](int plane, int x, int y) {
    return static_cast<double>(frame->data[plane][y * frame->linesize[plane] + x]);
  };
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      appendPixel(sample(0, x, y), sample(1, x / 2, y / 2), sample(2, x / 2, y / 2), &picture.rgb);
    }
  }
  return picture;
}

Picture decodeJpeg(const std::string& bytes) {
  const std::unique_ptr<void, JpegDeleter> jpeg(tjInitDecompress());
  const auto* const data = reinterpret_cast<const unsigned char*>(bytes.data());
  Picture picture;
  int subsampling = 0;
  int colours = 0;
  require(tjDecompressHeader3(jpeg.get(), data, bytes.size(), &picture.width, &picture.height,
                              &subsampling, &colours) == 0,
          "not a JPEG picture");
  picture.rgb.resize(static_cast<std::size_t>(picture.width) *
                     static_cast<std::size_t>(picture.height) * 3);
  require(tjDecompress2(jpeg.get(), data, bytes.size(), picture.rgb.data(), picture.width, 0,
                        picture.height, TJPF_RGB, TJFLAG_STOPONWARNING) == 0,
          "a damaged JPEG picture");
  return picture;
}

double psnr(const Picture& a, const Picture& b) {
  require(a.width == b.width && a.height == b.height, "pictures of different sizes");
  double squares = 0.0;
  for (std::size_t i = 0; i < a.rgb.size(); ++i) {
    const double difference = static_cast<double>(a.rgb[i]) - static_cast<double>(b.rgb[i]);
    squares += difference * difference;
  }
  return 10.0 * std::log10(255.0 * 255.0 * static_cast<double>(a.rgb.size()) / squares);
}

}  // namespace morva::test
