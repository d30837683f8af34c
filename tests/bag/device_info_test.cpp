#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bag/recording.h"
#include "kbag_msgs.pb.h"
#include "morva/bag.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace pb = protix::kbag_msgs;
using testing::ElementsAre;
using testing::IsEmpty;

class GetDeviceInfo : public testing::Test {
 protected:
  DeviceInfo infoOf(const std::string& privateData, std::string* text) {
    record(dir_ / "a.kbag", {"/imu"}, {}, {.privateData = privateData});
    EXPECT_EQ(bag_.open(dir_ / "a.kbag", BagMode::kRead), 0);
    return bag_.getDeviceInfo(text);
  }

  const TempDir dir_;
  MorvaBag bag_;
  std::string text_ = "as it was";
};

TEST_F(GetDeviceInfo, FillsRecordAndPrintsJson) {
  pb::DeviceInfo device;
  device.set_device_name("scanner");
  device.set_device_model("S1");
  device.set_serial_number("0042");
  device.set_hardware_version("h1");
  device.set_firmware_version("f2");
  device.set_software_version("s3");
  device.set_manufacture_date("2025-01-31");
  device.add_sensors("imu");
  device.add_sensors("lidar \"16\"");

  const DeviceInfo info = infoOf(device.SerializeAsString(), &text_);
  EXPECT_EQ(info.deviceName, "scanner");
  EXPECT_EQ(info.deviceModel, "S1");
  EXPECT_EQ(info.serialNumber, "0042");
  EXPECT_EQ(info.hardwareVersion, "h1");
  EXPECT_EQ(info.firmwareVersion, "f2");
  EXPECT_EQ(info.softwareVersion, "s3");
  EXPECT_EQ(info.manufactureDate, "2025-01-31");
  EXPECT_THAT(info.sensors, ElementsAre("imu", "lidar \"16\""));
  EXPECT_EQ(text_,
            "{\n \"device_name\": \"scanner\",\n \"device_model\": \"S1\",\n"
            " \"serial_number\": \"0042\",\n \"hardware_version\": \"h1\",\n"
            " \"firmware_version\": \"f2\",\n \"software_version\": \"s3\",\n"
            " \"manufacture_date\": \"2025-01-31\",\n \"sensors\": [\n  \"imu\",\n"
            "  \"lidar \\\"16\\\"\"\n ]\n}\n");
}

TEST_F(GetDeviceInfo, PrintsFieldsThatHoldTheirDefault) {
  pb::DeviceInfo device;
  device.set_device_model("S1");
  EXPECT_EQ(infoOf(device.SerializeAsString(), &text_).deviceModel, "S1");
  EXPECT_EQ(text_,
            "{\n \"device_name\": \"\",\n \"device_model\": \"S1\",\n \"serial_number\": \"\",\n"
            " \"hardware_version\": \"\",\n \"firmware_version\": \"\",\n"
            " \"software_version\": \"\",\n \"manufacture_date\": \"\",\n \"sensors\": []\n}\n");
}

TEST_F(GetDeviceInfo, OlderRecordIsReadWhereTheNewerFormFails) {
  pb::DeviceInfoV102 device;
  device.set_device_name("name\xFF");  // not UTF-8
  device.set_serial_number("0042");
  device.set_firmware_version("f2");
  device.add_sensors("imu");

  testing::internal::CaptureStderr();
  const DeviceInfo info = infoOf(device.SerializeAsString(), &text_);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");  // a library does not print
  EXPECT_EQ(info.deviceName, "name\xFF");
  EXPECT_EQ(info.deviceModel, "");
  EXPECT_EQ(info.serialNumber, "0042");
  EXPECT_EQ(info.firmwareVersion, "f2");
  EXPECT_THAT(info.sensors, ElementsAre("imu"));
  EXPECT_EQ(text_,
            "{\n \"device_name\": \"bmFtZf8=\",\n \"serial_number\": \"MDA0Mg==\",\n"
            " \"firmware_version\": \"ZjI=\",\n \"sensors\": [\n  \"aW11\"\n ]\n}\n");
}

TEST_F(GetDeviceInfo, BytesThatFitBothFormsAreReadAsTheNewer) {
  pb::DeviceInfoV102 device;
  device.set_device_name("scanner");
  EXPECT_EQ(infoOf(device.SerializeAsString(), &text_).deviceName, "scanner");
  EXPECT_THAT(text_, testing::HasSubstr("\"device_name\": \"scanner\""));
}

TEST_F(GetDeviceInfo, NoPrivateDataGivesNothing) {
  const LogCapture log;
  EXPECT_EQ(infoOf("", &text_).deviceName, "");
  EXPECT_EQ(text_, "as it was");
  EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(GetDeviceInfo, BytesOfNeitherFormGiveNothing) {
  const LogCapture log;
  const DeviceInfo info = infoOf("\xFF\xFF\xFF", &text_);
  EXPECT_EQ(info.deviceName, "");
  EXPECT_THAT(info.sensors, IsEmpty());
  EXPECT_EQ(text_, "as it was");
  EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(GetDeviceInfo, ClosedHandleAndWritingHandleGiveNothing) {
  EXPECT_EQ(bag_.getDeviceInfo(&text_).deviceName, "");
  pb::DeviceInfo device;
  device.set_device_name("scanner");
  bag_.topics = {"/imu"};
  ASSERT_EQ(bag_.open(dir_ / "b.kbag", BagMode::kWrite, device.SerializeAsString()), 0);
  EXPECT_EQ(bag_.getDeviceInfo(&text_).deviceName, "");
  EXPECT_EQ(text_, "as it was");
}

TEST_F(GetDeviceInfo, TextMayBeNull) {
  pb::DeviceInfo device;
  device.set_device_name("scanner");
  EXPECT_EQ(infoOf(device.SerializeAsString(), nullptr).deviceName, "scanner");
}

}  // namespace
}  // namespace morva::test
