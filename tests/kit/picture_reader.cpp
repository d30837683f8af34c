#include "kit/picture_reader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <memory>
#include <turbojpeg.h>

#include "kit/simulate/av_pointers.h"

namespace morva::test {

namespace {

void copyPlane(const std::uint8_t* from, int stride, int width, std::vector<std::uint8_t>* to) {
  const auto rowBytes = static_cast<std::size_t>(width);
  for (std::size_t at = 0; at < to->size(); at += rowBytes, from += stride) {
    std::copy_n(from, rowBytes, to->data() + at);
  }
}

}  // namespace

std::optional<sim::Picture> decodeH264(const std::string& payload) {
  const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
  const sim::ContextPtr context(avcodec_alloc_context3(codec));
  const sim::FramePtr frame(av_frame_alloc());
  const sim::PacketPtr packet(av_packet_alloc());
  if (avcodec_open2(context.get(), codec, nullptr) < 0) return std::nullopt;
  if (av_new_packet(packet.get(), static_cast<int>(payload.size())) < 0) return std::nullopt;
  std::copy(payload.begin(), payload.end(), packet->data);
  if (avcodec_send_packet(context.get(), packet.get()) < 0) return std::nullopt;
  if (avcodec_send_packet(context.get(), nullptr) < 0) return std::nullopt;  // that was all
  if (avcodec_receive_frame(context.get(), frame.get()) < 0) return std::nullopt;
  if (frame->format != AV_PIX_FMT_YUV420P || frame->decode_error_flags != 0) return std::nullopt;
  sim::Picture picture(frame->width, frame->height);
  copyPlane(frame->data[0], frame->linesize[0], picture.width, &picture.y);
  copyPlane(frame->data[1], frame->linesize[1], picture.width / 2, &picture.u);
  copyPlane(frame->data[2], frame->linesize[2], picture.width / 2, &picture.v);
  return picture;
}

std::optional<sim::Picture> decodeJpeg(const std::string& payload) {
  const std::unique_ptr<void, int (*)(tjhandle)> handle(tjInitDecompress(), tjDestroy);
  const std::vector<unsigned char> bytes(payload.begin(), payload.end());
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colours = 0;
  if (tjDecompressHeader3(handle.get(), bytes.data(), bytes.size(), &width, &height, &subsampling,
                          &colours) != 0 ||
      subsampling != TJSAMP_420) {
    return std::nullopt;
  }
  sim::Picture picture(width, height);
  std::array<unsigned char*, 3> planes = {picture.y.data(), picture.u.data(), picture.v.data()};
  if (tjDecompressToYUVPlanes(handle.get(), bytes.data(), bytes.size(), planes.data(), width,
                              nullptr, height, 0) != 0) {
    return std::nullopt;
  }
  return picture;
}

std::vector<int> nalTypes(const std::string& payload) {
  const std::string startCode("\0\0\1", 3);
  std::vector<int> types;
  for (std::size_t at = payload.find(startCode); at != std::string::npos;
       at = payload.find(startCode, at + 3)) {
    if (at + 3 < payload.size()) types.push_back(static_cast<std::uint8_t>(payload[at + 3]) & 0x1F);
  }
  return types;
}

std::uint32_t stampedNumber(const sim::Picture& picture) {
  std::uint32_t number = 0;
  for (int bit = 0; bit < sim::kBits; ++bit) {
    const int column = sim::kBitsLeft + bit * sim::kBitPixels + sim::kBitPixels / 2;
    const int row = sim::kBitsTop + sim::kBitPixels / 2;
    const std::uint8_t luma =
        picture.y.at(sim::Picture::area(picture.width, row) + static_cast<std::size_t>(column));
    number = number << 1U | (luma > 125 ? 1U : 0U);
  }
  return number;
}

double psnr(const sim::Picture& left, const sim::Picture& right) {
  double squares = 0.0;
  for (std::size_t i = 0; i < left.y.size(); ++i) {
    const double difference = static_cast<double>(left.y[i]) - right.y.at(i);
    squares += difference * difference;
  }
  return 10.0 * std::log10(255.0 * 255.0 * static_cast<double>(left.y.size()) / squares);
}

}  // namespace morva::test
