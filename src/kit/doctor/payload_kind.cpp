#include "kit/doctor/payload_kind.h"

#include <google/protobuf/arena.h>
#include <google/protobuf/stubs/logging.h>

#include "kbag_msgs.pb.h"
#include "messages/crowded_payload.h"
#include "messages/message_kind.h"

namespace morva::doctor {
namespace {

namespace pb = protix::kbag_msgs;

template <typename Array>
bool parses(const std::string& payload) {
  // The parser would report text that is not UTF-8 on standard error.
  const google::protobuf::LogSilencer silencer;
  google::protobuf::Arena arena;
  return google::protobuf::Arena::CreateMessage<Array>(&arena)->ParseFromString(payload);
}

}  // namespace

bool isKnownTopic(std::string_view topic) { return messageKindOf(topic) != MessageKind::kUnknown; }

bool isDecodable(std::string_view topic, const std::string& payload, std::size_t storedBytes) {
  const MessageKind kind = messageKindOf(topic);
  if (isCrowded(kind, payload, storedBytes)) return false;
  switch (kind) {
    case MessageKind::kUnknown:
      return true;
    case MessageKind::kImu:
      return parses<pb::ImuMsgArray>(payload);
    case MessageKind::kMagnetic:
      return parses<pb::MagneticMsgArray>(payload);
    case MessageKind::kMotor:
      return parses<pb::OdometryMsgArray>(payload);
    case MessageKind::kGnss:
      return parses<pb::GnssMsgArray>(payload);
    case MessageKind::kLidar:
      return parses<pb::LidarPointMsgArray>(payload);
    case MessageKind::kPicture:
      return parses<pb::ImageMsgArray>(payload);
    case MessageKind::kFile:
      return parses<pb::FileMsgArray>(payload);
    case MessageKind::kLog:
      return parses<pb::LogMsgArray>(payload);
  }
  return true;
}

}  // namespace morva::doctor
