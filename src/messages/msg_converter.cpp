#include "messages/msg_converter.h"

#include <cstddef>

#include <google/protobuf/arena.h>
#include <google/protobuf/stubs/logging.h>

#include "messages/lidar_decoder.h"
#include "messages/msg_converter_pri.h"

namespace morva {
namespace {

namespace pb = protix::kbag_msgs;

/// A payload up to which the message that it is parsed into is kept for the next one. Most samples
/// come in such payloads, and making a message anew costs more than parsing them.
constexpr std::size_t kSmallPayloadBytes = 4096;

/// Large blocks, so that the points of a scan do not cost a heap block each.
google::protobuf::ArenaOptions arenaOptions() {
  constexpr std::size_t kStartBlockBytes = 4096;
  constexpr std::size_t kMaxBlockBytes = 262'144;
  google::protobuf::ArenaOptions options;
  options.start_block_size = kStartBlockBytes;
  options.max_block_size = kMaxBlockBytes;
  return options;
}

/// @return False where the payload is no such message; silently, while protobuf by itself would
///         write to standard error about text that is not UTF-8.
bool parse(const std::string& payload, pb::FileMsgArray* array) {
  const google::protobuf::LogSilencer silencer;
  return array->ParseFromString(payload);
}

/// The other messages hold no text.
bool parse(const std::string& payload, google::protobuf::Message* array) {
  return array->ParseFromString(payload);
}

template <typename Frame, typename Array, typename Convert>
MsgConverter::Frames<Frame> parseAndConvert(const std::string& payload, Array* array,
                                            Convert convert) {
  if (!parse(payload, array)) return {};

  MsgConverter::Frames<Frame> frames;
  frames.reserve(static_cast<std::size_t>(array->msgs_size()));
  for (const auto& msg : array->msgs()) {
    if (std::shared_ptr<Frame> frame = convert(msg)) frames.push_back(std::move(frame));
  }
  return frames;
}

/// Parses `payload` as an `Array` and converts each of its samples with `convert`.
template <typename Frame, typename Array, typename Convert>
MsgConverter::Frames<Frame> convertEach(const std::string& payload, Convert convert) {
  if (payload.size() <= kSmallPayloadBytes) {
    thread_local Array kept;
    return parseAndConvert<Frame>(payload, &kept, convert);
  }
  google::protobuf::Arena arena(arenaOptions());
  auto* const array = google::protobuf::Arena::CreateMessage<Array>(&arena);
  return parseAndConvert<Frame>(payload, array, convert);
}

template <typename Frame, typename Array>
MsgConverter::Frames<Frame> convertEach(const std::string& payload) {
  return convertEach<Frame, Array>(payload,
                                   [](const auto& msg) { return MsgConverterPri::fromPBMsg(msg); });
}

}  // namespace

MsgConverter::Frames<ImuFrame> MsgConverter::fromImuMsgArray(const std::string& payload) {
  return convertEach<ImuFrame, pb::ImuMsgArray>(payload);
}

MsgConverter::Frames<MagneticFrame> MsgConverter::fromMagneticMsgArray(const std::string& payload) {
  return convertEach<MagneticFrame, pb::MagneticMsgArray>(payload);
}

MsgConverter::Frames<MotorFrame> MsgConverter::fromMotorMsgArray(const std::string& payload) {
  return convertEach<MotorFrame, pb::OdometryMsgArray>(payload, [](const pb::OdometryMsg& msg) {
    double angle = 0.0;
    auto frame = MsgConverterPri::fromPBMsg(msg, &angle);
    frame->angle = angle;
    return frame;
  });
}

MsgConverter::Frames<GnssFrame> MsgConverter::fromGnssMsgArray(const std::string& payload) {
  return convertEach<GnssFrame, pb::GnssMsgArray>(payload);
}

MsgConverter::Frames<PointCloudFrame> MsgConverter::fromPointCloudMsgArray(
    const std::string& payload) {
  if (auto frames = decodeLidarPayload(payload)) return *std::move(frames);
  return convertEach<PointCloudFrame, pb::LidarPointMsgArray>(payload);
}

MsgConverter::Frames<ImageFrame> MsgConverter::fromImageMsgArray(const std::string& payload) {
  return convertEach<ImageFrame, pb::ImageMsgArray>(payload);
}

MsgConverter::Frames<FileFrame> MsgConverter::fromFileMsgArray(const std::string& payload) {
  return convertEach<FileFrame, pb::FileMsgArray>(payload);
}

MsgConverter::Frames<RawDataFrame> MsgConverter::fromRawDataMsgArray(const std::string& payload) {
  return convertEach<RawDataFrame, pb::LogMsgArray>(payload);
}

}  // namespace morva
