// A payload as every kind of topic would take it.
#include <string>

#include <kbag_msgs.pb.h>

#include "messages/msg_converter.h"
#include "target.h"

namespace morva::fuzz {
namespace {

namespace pb = protix::kbag_msgs;

template <typename Array, typename Frame>
void compare(const std::string& payload, const MsgConverter::Frames<Frame>& frames) {
  Array array;
  const bool isParsed = array.ParseFromString(payload);
  const auto count = isParsed ? static_cast<std::size_t>(array.msgs_size()) : 0;
  expect(frames.size() == count, "a converter gives other than one frame for each message");
  for (std::size_t i = 0; i < count; ++i) {
    expect(frames[i] != nullptr, "a converter gives a null frame");
    const pb::Header& header = array.msgs(static_cast<int>(i)).header();
    expect(frames[i]->seq == header.seq() &&
               frames[i]->collectTimestamp == static_cast<std::uint64_t>(header.timestamp()),
           "a frame has another number or time than its message");
  }
}

void compareFiles(const MsgConverter::Frames<FileFrame>& frames) {
  for (const auto& frame : frames) {
    expect(frame->name.find('/') == std::string::npos, "a carried file's name has a folder");
  }
}

}  // namespace

void runConvert(std::string_view input) {
  const std::string payload(input);
  compare<pb::ImuMsgArray>(payload, MsgConverter::fromImuMsgArray(payload));
  compare<pb::MagneticMsgArray>(payload, MsgConverter::fromMagneticMsgArray(payload));
  compare<pb::OdometryMsgArray>(payload, MsgConverter::fromMotorMsgArray(payload));
  compare<pb::GnssMsgArray>(payload, MsgConverter::fromGnssMsgArray(payload));
  compare<pb::LidarPointMsgArray>(payload, MsgConverter::fromPointCloudMsgArray(payload));
  compare<pb::ImageMsgArray>(payload, MsgConverter::fromImageMsgArray(payload));
  const auto files = MsgConverter::fromFileMsgArray(payload);
  compare<pb::FileMsgArray>(payload, files);
  compareFiles(files);
  compare<pb::LogMsgArray>(payload, MsgConverter::fromRawDataMsgArray(payload));
}

}  // namespace morva::fuzz
