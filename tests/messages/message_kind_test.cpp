#include "messages/message_kind.h"

#include <gtest/gtest.h>

namespace morva::test {

TEST(MessageKind, EveryTopicThatIsExportedHasItsKind) {
  EXPECT_EQ(messageKindOf("/imu"), MessageKind::kImu);
  EXPECT_EQ(messageKindOf("/magnetic"), MessageKind::kMagnetic);
  EXPECT_EQ(messageKindOf("/lidar_to_platform"), MessageKind::kMotor);
  EXPECT_EQ(messageKindOf("/gnss_data"), MessageKind::kGnss);
  for (const char* topic : {"/lidar", "/hesai/pandar", "/livox/lidar"}) {
    EXPECT_EQ(messageKindOf(topic), MessageKind::kLidar) << topic;
  }
  for (const char* topic : {"/camera_left/jpeg", "/camera_left/h264", "/camera_right_seco/h264"}) {
    EXPECT_EQ(messageKindOf(topic), MessageKind::kPicture) << topic;
  }
  for (const char* topic : {"/config_file", "/project_data"}) {
    EXPECT_EQ(messageKindOf(topic), MessageKind::kFile) << topic;
  }
  for (const char* topic : {"/raw_gnss_log", "/raw_ntrip_log", "/raw_ppk_log"}) {
    EXPECT_EQ(messageKindOf(topic), MessageKind::kLog) << topic;
  }
}

TEST(MessageKind, OtherNamesAreUnknown) {
  for (const char* topic : {"", "imu", "/imu2", "/imu/", "/camera_left", "/camera_left/h265",
                            "/left/h264", "/lidar/points", "/raw_log"}) {
    EXPECT_EQ(messageKindOf(topic), MessageKind::kUnknown) << topic;
  }
}

}  // namespace morva::test
