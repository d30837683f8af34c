#include "hostile/every_topic.h"

#include <string>

#include "kbag_msgs.pb.h"
#include "support/recording_builder.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace msgs = protix::kbag_msgs;

constexpr std::int64_t kTime = 1700000000000000;

/// An array of two messages, the fields of which `fill` sets.
template <typename Array, typename Fill>
Array twoOf(Fill fill) {
  Array array;
  for (std::uint32_t i = 0; i < 2; ++i) {
    auto* const msg = array.add_msgs();
    msg->mutable_header()->set_timestamp(kTime + 1000 * i);
    msg->mutable_header()->set_scale(1000);
    msg->mutable_header()->set_seq(i);
    fill(msg);
  }
  return array;
}

}  // namespace

std::string bagOfEveryTopic(CompressionType compression) {
  RecordingBuilder recording(compression);
  recording.add("/imu", twoOf<msgs::ImuMsgArray>([](msgs::ImuMsg* msg) {
                  msg->set_accel_x(-5);
                  msg->set_gyro_z(1234567);
                }));
  recording.add("/magnetic",
                twoOf<msgs::MagneticMsgArray>([](msgs::MagneticMsg* msg) { msg->set_mag_y(44); }));
  recording.add("/lidar_to_platform", twoOf<msgs::OdometryMsgArray>([](msgs::OdometryMsg* msg) {
                  msg->set_qw(1000);
                  msg->set_angle(90000);
                }));
  recording.add("/gnss_data", twoOf<msgs::GnssMsgArray>([](msgs::GnssMsg* msg) {
                  msg->set_status(1);
                  msg->set_latitude(47.5);
                }));
  recording.add("/lidar", twoOf<msgs::LidarPointMsgArray>([](msgs::LidarPointMsg* msg) {
                  for (int i = 0; i < 3; ++i) msg->add_points()->set_x(i * 1000);
                }));
  for (const char* topic : {"/camera_left/h264", "/camera_right/jpeg"}) {
    recording.add(topic, twoOf<msgs::ImageMsgArray>(
                             [](msgs::ImageMsg* msg) { msg->set_data(std::string(60, 'x')); }));
  }
  for (const char* topic : {"/config_file", "/project_data"}) {
    recording.add(topic, twoOf<msgs::FileMsgArray>([](msgs::FileMsg* msg) {
                    msg->set_name("calib/some.yaml");
                    msg->set_plain("key: value\n");
                  }));
  }
  recording.add("/raw_gnss_log",
                twoOf<msgs::LogMsgArray>([](msgs::LogMsg* msg) { msg->set_data("$GPTXT,1\r\n"); }));
  msgs::DeviceInfo device;
  device.set_device_name("scanner");
  recording.setPrivateData(device.SerializeAsString());

  const TempDir dir;
  return readFile(recording.write(dir / "x.kbag"));
}

}  // namespace morva::test
