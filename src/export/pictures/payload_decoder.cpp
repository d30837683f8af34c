#include "export/pictures/payload_decoder.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}
#include <turbojpeg.h>

namespace morva {
namespace {

constexpr int kBgrBytes = 3;
/// What the picture library takes when it opens a stream by name; the name is a hint like others.
constexpr int kProbeBufferBytes = 4096;
constexpr char kProbeName[] = "payload.h264";

/// Deletes with one of the libraries' functions that take the address of a pointer.
template <auto kFree>
struct FreeAt {
  template <typename Object>
  void operator()(Object* object) const {
    kFree(&object);
  }
};
/// Deletes with one that takes the pointer.
template <auto kFree>
struct Free {
  template <typename Object>
  void operator()(Object* object) const {
    kFree(object);
  }
};

void freeJpegCompressor(void* compressor) { tjDestroy(compressor); }

using ContextPtr = std::unique_ptr<AVCodecContext, FreeAt<avcodec_free_context>>;
using ParserPtr = std::unique_ptr<AVCodecParserContext, Free<av_parser_close>>;
using PacketPtr = std::unique_ptr<AVPacket, FreeAt<av_packet_free>>;
using FramePtr = std::unique_ptr<AVFrame, FreeAt<av_frame_free>>;
using ScalerPtr = std::unique_ptr<SwsContext, Free<sws_freeContext>>;
using CompressorPtr = std::unique_ptr<void, Free<freeJpegCompressor>>;
using JpegPtr = std::unique_ptr<unsigned char, Free<tjFree>>;

/// Reads a payload like a file.
class PayloadInput {
 public:
  explicit PayloadInput(std::string_view payload) : left_(payload) {
    auto* const buffer = static_cast<std::uint8_t*>(av_malloc(kProbeBufferBytes));
    if (buffer == nullptr) return;
    context_ = avio_alloc_context(buffer, kProbeBufferBytes, 0, this, &read, nullptr, nullptr);
    if (context_ == nullptr) av_free(buffer);
  }
  PayloadInput(const PayloadInput&) = delete;
  PayloadInput& operator=(const PayloadInput&) = delete;
  ~PayloadInput() {
    if (context_ == nullptr) return;
    av_freep(&context_->buffer);  // the library may have put another one in its place
    avio_context_free(&context_);
  }

  /// The name of the stream's format; empty where none is recognised.
  [[nodiscard]] std::string_view format() {
    const AVInputFormat* found = nullptr;
    if (context_ == nullptr ||
        av_probe_input_buffer2(context_, &found, kProbeName, nullptr, 0, 0) < 0) {
      return {};
    }
    return found->name;
  }

 private:
  static int read(void* self, std::uint8_t* buffer, int size) {
    auto* const input = static_cast<PayloadInput*>(self);
    const std::size_t bytes = std::min(input->left_.size(), static_cast<std::size_t>(size));
    if (bytes == 0) return AVERROR_EOF;
    std::memcpy(buffer, input->left_.data(), bytes);
    input->left_.remove_prefix(bytes);
    return static_cast<int>(bytes);
  }

  std::string_view left_;
  AVIOContext* context_ = nullptr;
};

ContextPtr openDecoder(double maxPixels) {
  const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_H264);
  if (codec == nullptr) return nullptr;
  ContextPtr context(avcodec_alloc_context3(codec));
  if (context == nullptr) return nullptr;
  context->thread_count = 1;    // one picture gives several threads nothing to do
  context->apply_cropping = 0;  // the picture library converts the uncropped picture
  context->max_pixels = static_cast<std::int64_t>(maxPixels);
  return avcodec_open2(context.get(), codec, nullptr) < 0 ? nullptr : std::move(context);
}

/// Decodes the one picture of a stream.
class OnePicture {
 public:
  explicit OnePicture(double maxPixels)
      : context_(openDecoder(maxPixels)),
        parser_(av_parser_init(AV_CODEC_ID_H264)),
        packet_(av_packet_alloc()),
        frame_(av_frame_alloc()),
        next_(av_frame_alloc()) {}

  /// @param padded  The stream, followed by the padding that the decoder asks for, `bytes` without.
  /// @return Null where the stream holds no picture, or more than one, or anything is wrong.
  [[nodiscard]] const AVFrame* decode(const std::uint8_t* padded, int bytes) {
    if (context_ == nullptr || parser_ == nullptr || packet_ == nullptr || frame_ == nullptr ||
        next_ == nullptr) {
      return nullptr;
    }
    return decodeAll(padded, bytes) && pictures_ == 1 && isSound(*frame_) ? frame_.get() : nullptr;
  }

 private:
  [[nodiscard]] bool decodeAll(const std::uint8_t* data, int left) {
    while (true) {
      // With nothing left it gives what it still holds, and then nothing.
      const int used =
          av_parser_parse2(parser_.get(), context_.get(), &packet_->data, &packet_->size, data,
                           left, AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
      if (used < 0 || used > left) return false;
      const bool isEnd = left == 0 && packet_->size == 0;
      data += used;
      left -= used;
      if (isEnd) return decodePacket(nullptr, AVERROR_EOF);
      if (packet_->size > 0 && !decodePacket(packet_.get(), AVERROR(EAGAIN))) return false;
    }
  }

  /// @param last  What the decoder says when it has given all that it has.
  [[nodiscard]] bool decodePacket(const AVPacket* packet, int last) {
    if (avcodec_send_packet(context_.get(), packet) < 0) return false;
    int result = 0;
    while ((result = avcodec_receive_frame(context_.get(), next_.get())) >= 0) {
      if (++pictures_ > 1) return false;
      av_frame_move_ref(frame_.get(), next_.get());
    }
    return result == last;
  }

  /// True for a whole picture that is cropped at the right and lower edges at most.
  [[nodiscard]] static bool isSound(const AVFrame& frame) {
    return frame.decode_error_flags == 0 && (frame.flags & AV_FRAME_FLAG_CORRUPT) == 0 &&
           (frame.format == AV_PIX_FMT_YUV420P || frame.format == AV_PIX_FMT_YUVJ420P) &&
           frame.crop_left == 0 && frame.crop_top == 0 &&
           frame.crop_right < static_cast<std::size_t>(frame.width) &&
           frame.crop_bottom < static_cast<std::size_t>(frame.height);
  }

  ContextPtr context_;
  ParserPtr parser_;
  PacketPtr packet_;  ///< owns nothing: its data are the parser's or the payload's
  FramePtr frame_;
  FramePtr next_;
  int pictures_ = 0;
};

struct Size {
  int width = 0;
  int height = 0;
};

/// What a conversion to BGR is made for.
struct ScalerKey {
  int width = 0;
  int height = 0;
  int format = 0;
  bool operator==(const ScalerKey&) const = default;
};

}  // namespace

/// What is kept from payload to payload: the largest memory would be cleared anew for each.
struct PayloadDecoder::Parts {
  std::vector<std::uint8_t> padded;
  ScalerPtr scaler;
  ScalerKey scalerKey;
  std::vector<std::uint8_t> bgr;
  CompressorPtr compressor{tjInitCompress()};
  JpegPtr jpeg;
  unsigned long jpegBytes = 0;

  void pad(std::string_view payload);
  [[nodiscard]] bool convert(const AVFrame& frame, int strideBytes);
  [[nodiscard]] bool compress(Size size, int strideBytes, int quality, std::string* out);
};

void PayloadDecoder::Parts::pad(std::string_view payload) {
  padded.resize(payload.size() + AV_INPUT_BUFFER_PADDING_SIZE);
  std::copy(payload.begin(), payload.end(), padded.begin());
  std::fill(padded.end() - AV_INPUT_BUFFER_PADDING_SIZE, padded.end(), std::uint8_t{0});
}

bool PayloadDecoder::Parts::convert(const AVFrame& frame, int strideBytes) {
  // Not the library's cache of one: it takes a picture of the full range of values for one of the
  // limited range.
  const ScalerKey key{frame.width, frame.height, frame.format};
  if (scaler == nullptr || !(key == scalerKey)) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    scaler.reset(sws_getContext(frame.width, frame.height, format, frame.width, frame.height,
                                AV_PIX_FMT_BGR24, SWS_BICUBIC, nullptr, nullptr, nullptr));
    scalerKey = key;
  }
  if (scaler == nullptr) return false;
  const std::size_t bytes =
      static_cast<std::size_t>(strideBytes) * static_cast<std::size_t>(frame.height);
  bgr.resize(bytes + AV_INPUT_BUFFER_PADDING_SIZE);  // whole vectors are stored
  std::uint8_t* const planes[4] = {bgr.data()};
  const int strides[4] = {strideBytes};
  return sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides) ==
         frame.height;
}

// The library compresses with the same code, through an interface that copies every row first.
bool PayloadDecoder::Parts::compress(Size size, int strideBytes, int quality, std::string* out) {
  const unsigned long bound = tjBufSize(size.width, size.height, TJSAMP_420);
  if (compressor == nullptr || bound == static_cast<unsigned long>(-1)) return false;
  if (bound > INT_MAX) return false;
  if (jpegBytes < bound) {
    jpeg.reset(tjAlloc(static_cast<int>(bound)));
    jpegBytes = jpeg == nullptr ? 0 : bound;
    if (jpeg == nullptr) return false;
  }
  unsigned char* data = jpeg.get();
  unsigned long bytes = jpegBytes;
  if (tjCompress2(compressor.get(), bgr.data(), size.width, strideBytes, size.height, TJPF_BGR,
                  &data, &bytes, TJSAMP_420, quality, TJFLAG_NOREALLOC | TJFLAG_ACCURATEDCT) != 0) {
    return false;
  }
  out->assign(data, data + bytes);
  return true;
}

PayloadDecoder::PayloadDecoder() : parts_(std::make_unique<Parts>()) {}
PayloadDecoder::~PayloadDecoder() = default;

bool PayloadDecoder::decode(std::string_view payload, int quality, double maxPixels,
                            std::string* jpeg) {
  if (payload.size() > INT_MAX - AV_INPUT_BUFFER_PADDING_SIZE) return false;
  if (PayloadInput(payload).format() != "h264") return false;
  parts_->pad(payload);
  OnePicture picture(maxPixels);
  const AVFrame* const frame =
      picture.decode(parts_->padded.data(), static_cast<int>(payload.size()));
  if (frame == nullptr || frame->width > INT_MAX / kBgrBytes) return false;
  const int strideBytes = frame->width * kBgrBytes;
  const Size size{frame->width - static_cast<int>(frame->crop_right),
                  frame->height - static_cast<int>(frame->crop_bottom)};
  return parts_->convert(*frame, strideBytes) && parts_->compress(size, strideBytes, quality, jpeg);
}

}  // namespace morva
