// Payloads that are decoded in memory against the same payloads decoded through a file: nothing
// that a user sees may differ.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "export/data_exporter.h"
#include "export/export_fixture.h"
#include "export/picture_module.h"
#include "support/real_data_dir.h"

namespace morva {
namespace {

namespace fs = std::filesystem;
namespace pb = protix::kbag_msgs;

constexpr char kTopic[] = "/camera_left/h264";

/// One kind of H.264 stream.
struct Stream {
  int width = 64;
  int height = 48;
  int pictures = 1;
  int groupSize = 1;  ///< pictures from one that stands alone to the next
  AVPixelFormat format = AV_PIX_FMT_YUV420P;
  AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
  const char* options = "";  ///< "name=value:name=value", of the encoder
  unsigned seed = 1;         ///< of the pictures
};

struct Free {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

/// Waves and noise, other ones in every picture.
void draw(AVFrame* frame, std::mt19937* random) {
  const AVPixFmtDescriptor* const format =
      av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
  const bool isWide = format->comp[0].depth > 8;
  for (int plane = 0; plane < format->nb_components; ++plane) {
    const int rows = plane == 0 ? frame->height : frame->height >> format->log2_chroma_h;
    const auto step = static_cast<unsigned>(1 + (*random)() % 7);
    for (unsigned at = 0; at < static_cast<unsigned>(frame->linesize[plane] * rows); ++at) {
      const auto value = static_cast<unsigned>(40 + at * step % 120 + (*random)() % 24);
      // The upper byte of a sample of ten bits holds two of them.
      frame->data[plane][at] = static_cast<std::uint8_t>(isWide && at % 2 == 1 ? value % 4 : value);
    }
  }
}

void takePackets(AVCodecContext* context, AVPacket* packet, std::string* stream) {
  while (avcodec_receive_packet(context, packet) >= 0) {
    stream->append(packet->data, packet->data + packet->size);
    av_packet_unref(packet);
  }
}

/// The bytes of a stream; empty where the encoder does not take it.
std::string encode(const Stream& stream) {
  av_log_set_level(AV_LOG_QUIET);
  const AVCodec* const codec = avcodec_find_encoder_by_name("libx264");
  if (codec == nullptr) return {};
  const std::unique_ptr<AVCodecContext, Free> context(avcodec_alloc_context3(codec));
  const std::unique_ptr<AVFrame, Free> frame(av_frame_alloc());
  const std::unique_ptr<AVPacket, Free> packet(av_packet_alloc());
  context->width = frame->width = stream.width;
  context->height = frame->height = stream.height;
  context->pix_fmt = stream.format;
  frame->format = stream.format;
  context->color_range = stream.range;
  context->time_base = {1, 10};
  context->gop_size = stream.groupSize;
  context->thread_count = 1;
  av_opt_set(context->priv_data, "preset", "ultrafast", 0);
  av_opt_set(context->priv_data, "x264-params", stream.options, 0);
  if (avcodec_open2(context.get(), codec, nullptr) < 0) return {};
  if (av_frame_get_buffer(frame.get(), 0) < 0) return {};
  std::mt19937 random(stream.seed);
  std::string bytes;
  for (int i = 0; i < stream.pictures; ++i) {
    if (av_frame_make_writable(frame.get()) < 0) return {};
    draw(frame.get(), &random);
    frame->pts = i;
    if (avcodec_send_frame(context.get(), frame.get()) < 0) return {};
    takePackets(context.get(), packet.get(), &bytes);
  }
  if (avcodec_send_frame(context.get(), nullptr) < 0) return {};
  takePackets(context.get(), packet.get(), &bytes);
  return bytes;
}

/// The module, without its way through the memory.
class ThroughFiles final : public PictureDecoder {
 public:
  ThroughFiles() {
    std::string reason;
    module_ = PictureModule::decoder(&reason);
    PictureModule::replace(this);
  }
  ~ThroughFiles() override { PictureModule::replace(nullptr); }

  bool decodePayload(std::string_view /*payload*/, std::string* /*jpeg*/) override { return false; }
  PictureResult decode(const std::string& path, std::string* jpeg) override {
    return module_->decode(path, jpeg);
  }

 private:
  PictureDecoder* module_ = nullptr;
};

/// The module, counting the payloads that take the way through the memory.
class Counting final : public PictureDecoder {
 public:
  Counting() {
    std::string reason;
    module_ = PictureModule::decoder(&reason);
    PictureModule::replace(this);
  }
  ~Counting() override { PictureModule::replace(nullptr); }

  bool decodePayload(std::string_view payload, std::string* jpeg) override {
    const bool decoded = module_->decodePayload(payload, jpeg);
    inMemory += decoded ? 1 : 0;
    return decoded;
  }
  PictureResult decode(const std::string& path, std::string* jpeg) override {
    return module_->decode(path, jpeg);
  }

  int inMemory = 0;

 private:
  PictureDecoder* module_ = nullptr;
};

/// Changes a few bits, at least one.
std::string flipBits(std::string bytes, unsigned seed) {
  std::mt19937 random(seed);
  for (unsigned i = 0; i <= seed % 5; ++i) {
    bytes[random() % bytes.size()] ^= static_cast<char>(1U << random() % 8);
  }
  return bytes;
}

}  // namespace

class PayloadPictures : public test::ExportTest {
 protected:
  PayloadPictures() { makeDirectory("images/camera_0"); }

  void add(const std::string& payload) {
    ++payloads_;
    pb::ImageMsgArray array;
    pb::ImageMsg* const picture = array.add_msgs();
    picture->mutable_header()->set_timestamp(payloads_ * 1'000'000);
    picture->set_data(payload);
    recording_.add(kTopic, array);
  }

  using Files = std::map<std::string, std::string>;  ///< contents by name

  struct Outcome {
    std::vector<bool> verdicts;
    std::vector<std::string> lines;
    Files files;
  };

  /// The files that only one of two sets holds, or that differ.
  static std::set<std::string> namesOfDifferent(const Files& one, const Files& other) {
    std::set<std::string> names;
    for (const auto& [from, in] : {std::pair(&one, &other), std::pair(&other, &one)}) {
      for (const auto& [name, bytes] : *from) {
        const auto found = in->find(name);
        if (found == in->end() || found->second != bytes) names.insert(name);
      }
    }
    return names;
  }

  /// Unpacks every payload by itself, so that one that fails ends nothing else.
  Outcome unpackEach() {
    const MorvaBag::View messages = view(kTopic);
    log_.clear();
    Outcome outcome;
    for (const MorvaBag::View::MsgIndex& index : messages.indexes) {
      outcome.verdicts.push_back(DataExporter(&bag(), out_, {}).exportData(kTopic, {{index}}));
    }
    outcome.lines = log_.lines();
    for (const std::string& name : outputs()) {
      outcome.files[name] = output(name);
      fs::remove(out_ + "/" + name);
    }
    return outcome;
  }

  /// Unpacks both ways and compares all that is to be seen.
  /// @return How many payloads were decoded in memory.
  int compareWays() {
    Outcome throughFiles;
    {
      const ThroughFiles general;
      throughFiles = unpackEach();
    }
    const Counting counting;
    const Outcome inMemory = unpackEach();
    EXPECT_EQ(inMemory.verdicts, throughFiles.verdicts);
    EXPECT_EQ(inMemory.lines, throughFiles.lines);
    EXPECT_THAT(namesOfDifferent(inMemory.files, throughFiles.files), testing::IsEmpty());
    return counting.inMemory;
  }

  int payloads_ = 0;
};

TEST_F(PayloadPictures, IntactPicturesAreDecodedInMemoryToTheSameBytes) {
  const std::vector<Stream> streams = {
      {},
      {.width = 50, .height = 34},  // cropped
      {.width = 16, .height = 16},
      {.width = 322, .height = 182},
      {.range = AVCOL_RANGE_JPEG},
      {.format = AV_PIX_FMT_YUVJ420P},
      {.format = AV_PIX_FMT_GRAY8},
      {.options = "cabac=1:8x8dct=1"},
      {.options = "cabac=0"},
      {.options = "slices=4"},
      {.width = 96, .height = 96, .options = "interlaced=1"},
      {.options = "aud=1:repeat-headers=1"},
      {.options = "qp=0"},
      {.options = "qp=51:no-deblock=1"},
      {.options = "colormatrix=bt709:colorprim=bt709:transfer=bt709"},
      {.options = "sar=4/3"},
  };
  for (const Stream& stream : streams) {
    const std::string payload = encode(stream);
    ASSERT_FALSE(payload.empty()) << stream.options;
    add(payload);
  }
  add(encode({.format = AV_PIX_FMT_YUVJ420P}));
  add(encode({}));  // of the same size, but not of the same range
  EXPECT_EQ(compareWays(), payloads_);
}

TEST_F(PayloadPictures, PicturesOfOtherKindsLookTheSame) {
  for (const AVPixelFormat format :
       {AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV420P10LE}) {
    const std::string payload = encode({.format = format});
    if (!payload.empty()) add(payload);
  }
  ASSERT_GT(payloads_, 1);
  EXPECT_EQ(compareWays(), 0);
}

TEST_F(PayloadPictures, SeveralPicturesInOnePayloadGiveTheFirst) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    add(encode({.pictures = 4, .groupSize = 4, .seed = seed}));
    add(encode({.pictures = 3, .groupSize = 1, .seed = seed}));
    add(encode({.pictures = 5, .groupSize = 5, .options = "bframes=2:b-adapt=0", .seed = seed}));
  }
  EXPECT_EQ(compareWays(), 0);
}

TEST_F(PayloadPictures, PictureThatNeedsAnotherOneIsTreatedAlike) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    const Stream stream{.pictures = 1, .groupSize = 8, .options = "repeat-headers=1", .seed = seed};
    Stream longer = stream;
    longer.pictures = 2;
    const std::string first = encode(stream);
    const std::string both = encode(longer);
    ASSERT_TRUE(both.starts_with(first.substr(0, first.size() / 2)));
    add(both.substr(first.size()));  // no parameter sets
    add(first.substr(0, first.size() / 2) + both.substr(first.size()));
  }
  static_cast<void>(compareWays());
}

TEST_F(PayloadPictures, ChangingSizesLookTheSame) {
  const std::string small = encode({});
  const std::string wide = encode({.width = 160, .height = 96});
  for (const std::string& payload : {small + wide, wide + small, small + small, small, wide}) {
    add(payload);
  }
  EXPECT_EQ(compareWays(), 2) << "the last two";
}

TEST_F(PayloadPictures, TruncatedPayloadsLookTheSame) {
  const std::string whole = encode({.width = 64, .height = 64, .options = "slices=3"});
  for (std::size_t i = 1; i <= 120; ++i) add(whole.substr(0, whole.size() * i / 121));
  static_cast<void>(compareWays());
}

TEST_F(PayloadPictures, PayloadsWithOtherBytesAroundThemLookTheSame) {
  const std::string whole = encode({});
  const std::string end("\0\0\1\x0A", 4);
  for (const std::string& payload :
       {whole + end, whole + std::string(700, '\0'), whole + "trailing text", '\0' + whole,
        std::string(300, '\0') + whole, whole.substr(1), end + whole,
        std::string("\0\0\0\1\x09\xF0", 6) + whole,
        // What other formats begin with, in front of a picture.
        std::string("\0\0\0\1ftypisom\0\0\0\1", 16) + whole,
        std::string("\0\0\1\xBA\x44\0\4\0\4\1\0\0\3\xF8\0\0\1\xE0", 18) + whole,
        std::string("\0\0\1\xB3\x04\x00\x30\x13\0\0\1\0", 12) + whole}) {
    add(payload);
  }
  static_cast<void>(compareWays());
}

/// Payloads with flipped bits, from the seeds that the parameter begins with.
class DamagedPayloadPictures : public PayloadPictures,
                               public testing::WithParamInterface<unsigned> {};

TEST_P(DamagedPayloadPictures, LookTheSame) {
  const std::vector<std::string> intact = {
      encode({}), encode({.width = 50, .height = 34, .options = "slices=2:cabac=1"}),
      encode({.pictures = 2, .groupSize = 2}), encode({.width = 32, .height = 32})};
  for (unsigned i = 0; i < 80; ++i) {
    const unsigned seed = GetParam() + i;
    std::string damaged = flipBits(intact[i % intact.size()], seed);
    // The first bytes tell most: they are where the parameter sets stand.
    if (i % 3 == 0) damaged = flipBits(damaged.substr(0, 60), seed) + damaged.substr(60);
    add(damaged);
  }
  static_cast<void>(compareWays());
}

INSTANTIATE_TEST_SUITE_P(Seeds, DamagedPayloadPictures,
                         testing::Values(0U, 1000U, 2000U, 3000U, 4000U, 5000U));

TEST_F(PayloadPictures, RealPicturesAreDecodedInMemoryToTheSameBytes) {
  if (test::realDataDir().empty()) GTEST_SKIP() << "no real sensor data beside the checkout";
  const std::string stream =
      test::readFile(test::realDataDir() + "/camera/road_960x540_allintra.h264");
  const std::string start("\0\0\0\1\x09", 5);  // every picture begins with a delimiter
  for (std::size_t at = 0; payloads_ < 4;) {
    const std::size_t next = stream.find(start, at + 1);
    ASSERT_NE(next, std::string::npos);
    add(stream.substr(at, next - at));
    at = next;
  }
  EXPECT_EQ(compareWays(), payloads_);
}

}  // namespace morva
