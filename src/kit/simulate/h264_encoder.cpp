extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kit/simulate/av_pointers.h"
#include "kit/simulate/picture_encoder.h"
#include "platform/log.h"

namespace morva::sim {

namespace {

constexpr int kFramesPerSecond = 10;

const Log& log() {
  static const Log kLog("H264Encoder");
  return kLog;
}

// Every picture a key picture with the parameter sets before it; one thread, so that the same
// pictures give the same bytes.
ContextPtr openContext(const AVCodec* codec, int width, int height) {
  ContextPtr context(avcodec_alloc_context3(codec));
  if (context == nullptr) return nullptr;
  context->width = width;
  context->height = height;
  context->pix_fmt = AV_PIX_FMT_YUV420P;
  context->time_base = {1, kFramesPerSecond};
  context->framerate = {kFramesPerSecond, 1};
  context->gop_size = 1;
  context->max_b_frames = 0;
  context->thread_count = 1;
  const std::vector<std::pair<const char*, const char*>> options = {
      {"preset", "ultrafast"}, {"tune", "zerolatency"}, {"crf", "24"}};
  for (const auto& [name, value] : options) {
    if (av_opt_set(context->priv_data, name, value, 0) < 0) return nullptr;
  }
  return avcodec_open2(context.get(), codec, nullptr) < 0 ? nullptr : std::move(context);
}

FramePtr makeFrame(int width, int height) {
  FramePtr frame(av_frame_alloc());
  if (frame == nullptr) return nullptr;
  frame->format = AV_PIX_FMT_YUV420P;
  frame->width = width;
  frame->height = height;
  return av_frame_get_buffer(frame.get(), 0) < 0 ? nullptr : std::move(frame);
}

void copyPlane(const std::vector<std::uint8_t>& from, int width, std::uint8_t* to, int stride) {
  const auto rowBytes = static_cast<std::size_t>(width);
  for (std::size_t at = 0; at < from.size(); at += rowBytes, to += stride) {
    std::copy_n(from.data() + at, rowBytes, to);
  }
}

class H264Encoder final : public PictureEncoder {
 public:
  H264Encoder(ContextPtr context, FramePtr frame, PacketPtr packet)
      : context_(std::move(context)), frame_(std::move(frame)), packet_(std::move(packet)) {}

  bool encode(const Picture& picture, std::string* data) override {
    if (!fillFrame(picture) || avcodec_send_frame(context_.get(), frame_.get()) < 0 ||
        avcodec_receive_packet(context_.get(), packet_.get()) < 0) {
      log().error("encode picture %lld error!", frame_->pts);
      return false;
    }
    data->assign(packet_->data, packet_->data + packet_->size);
    av_packet_unref(packet_.get());
    return true;
  }

 private:
  bool fillFrame(const Picture& picture) {
    if (av_frame_make_writable(frame_.get()) < 0) return false;  // the encoder may still hold it
    copyPlane(picture.y, picture.width, frame_->data[0], frame_->linesize[0]);
    copyPlane(picture.u, picture.width / 2, frame_->data[1], frame_->linesize[1]);
    copyPlane(picture.v, picture.width / 2, frame_->data[2], frame_->linesize[2]);
    frame_->pts = next_++;
    return true;
  }

  ContextPtr context_;
  FramePtr frame_;
  PacketPtr packet_;
  std::int64_t next_ = 0;
};

}  // namespace

std::unique_ptr<PictureEncoder> makeH264Encoder(int width, int height) {
  av_log_set_level(AV_LOG_ERROR);  // the encoder's statistics are no concern of our users
  const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
  if (codec == nullptr) {
    log().error("no H.264 encoder (libx264) on this machine!");
    return nullptr;
  }
  ContextPtr context = openContext(codec, width, height);
  FramePtr frame = makeFrame(width, height);
  PacketPtr packet(av_packet_alloc());
  if (context == nullptr || frame == nullptr || packet == nullptr) {
    log().error("open encoder for %dx%d error!", width, height);
    return nullptr;
  }
  return std::make_unique<H264Encoder>(std::move(context), std::move(frame), std::move(packet));
}

}  // namespace morva::sim
