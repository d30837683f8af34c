#include "kit/doctor/payload_kind.h"

#include <algorithm>
#include <array>

#include <google/protobuf/arena.h>
#include <google/protobuf/stubs/logging.h>

#include "kbag_msgs.pb.h"

namespace morva::doctor {
namespace {

namespace pb = protix::kbag_msgs;

using Parse = bool (*)(const std::string& payload);

template <typename Array>
bool parses(const std::string& payload) {
  // The parser would report text that is not UTF-8 on standard error.
  const google::protobuf::LogSilencer silencer;
  google::protobuf::Arena arena;
  return google::protobuf::Arena::CreateMessage<Array>(&arena)->ParseFromString(payload);
}

struct Kind {
  std::string_view begin;
  std::string_view end;  ///< of the name; what stands between is free
  bool isWhole = true;   ///< `begin` is all of the name
  Parse parse = nullptr;
};

constexpr std::array kKinds = {
    Kind{"/imu", "", true, parses<pb::ImuMsgArray>},
    Kind{"/magnetic", "", true, parses<pb::MagneticMsgArray>},
    Kind{"/lidar_to_platform", "", true, parses<pb::OdometryMsgArray>},
    Kind{"/gnss_data", "", true, parses<pb::GnssMsgArray>},
    Kind{"/lidar", "", true, parses<pb::LidarPointMsgArray>},
    Kind{"/hesai/pandar", "", true, parses<pb::LidarPointMsgArray>},
    Kind{"/livox/lidar", "", true, parses<pb::LidarPointMsgArray>},
    Kind{"/camera_", "/h264", false, parses<pb::ImageMsgArray>},
    Kind{"/camera_", "/jpeg", false, parses<pb::ImageMsgArray>},
    Kind{"/config_file", "", true, parses<pb::FileMsgArray>},
    Kind{"/project_data", "", true, parses<pb::FileMsgArray>},
    Kind{"/raw_gnss_log", "", true, parses<pb::LogMsgArray>},
    Kind{"/raw_ntrip_log", "", true, parses<pb::LogMsgArray>},
    Kind{"/raw_ppk_log", "", true, parses<pb::LogMsgArray>},
};

Parse parserOf(std::string_view topic) {
  const auto found = std::ranges::find_if(kKinds, [topic](const Kind& kind) {
    return kind.isWhole ? topic == kind.begin
                        : topic.starts_with(kind.begin) && topic.ends_with(kind.end);
  });
  return found == kKinds.end() ? nullptr : found->parse;
}

}  // namespace

bool isKnownTopic(std::string_view topic) { return parserOf(topic) != nullptr; }

bool isDecodable(std::string_view topic, const std::string& payload) {
  const Parse parse = parserOf(topic);
  return parse == nullptr || parse(payload);
}

}  // namespace morva::doctor
