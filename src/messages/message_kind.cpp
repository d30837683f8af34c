#include "messages/message_kind.h"

#include <algorithm>
#include <array>

namespace morva {
namespace {

/// Topics whose names begin and end like this; what stands between is free.
struct Row {
  std::string_view begin;
  std::string_view end;
  MessageKind kind = MessageKind::kUnknown;
  bool isWhole = true;  ///< `begin` is all of the name
};

constexpr std::array kRows = {
    Row{"/imu", "", MessageKind::kImu},
    Row{"/magnetic", "", MessageKind::kMagnetic},
    Row{"/lidar_to_platform", "", MessageKind::kMotor},
    Row{"/gnss_data", "", MessageKind::kGnss},
    Row{"/lidar", "", MessageKind::kLidar},
    Row{"/hesai/pandar", "", MessageKind::kLidar},
    Row{"/livox/lidar", "", MessageKind::kLidar},
    Row{"/camera_", "/h264", MessageKind::kPicture, false},
    Row{"/camera_", "/jpeg", MessageKind::kPicture, false},
    Row{"/config_file", "", MessageKind::kFile},
    Row{"/project_data", "", MessageKind::kFile},
    Row{"/raw_gnss_log", "", MessageKind::kLog},
    Row{"/raw_ntrip_log", "", MessageKind::kLog},
    Row{"/raw_ppk_log", "", MessageKind::kLog},
};

}  // namespace

MessageKind messageKindOf(std::string_view topic) {
  const auto* const found = std::ranges::find_if(kRows, [topic](const Row& row) {
    return row.isWhole ? topic == row.begin
                       : topic.starts_with(row.begin) && topic.ends_with(row.end);
  });
  return found == kRows.end() ? MessageKind::kUnknown : found->kind;
}

}  // namespace morva
