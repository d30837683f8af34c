#ifndef MORVA_KIT_SIMULATE_AV_POINTERS_H_
#define MORVA_KIT_SIMULATE_AV_POINTERS_H_

extern "C" {
#include <libavcodec/avcodec.h>
}
#include <memory>

namespace morva::sim {

struct ContextDeleter {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FrameDeleter {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketDeleter {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using ContextPtr = std::unique_ptr<AVCodecContext, ContextDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_AV_POINTERS_H_
