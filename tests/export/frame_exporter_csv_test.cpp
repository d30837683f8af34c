// The CSV tables of the frame exporter, byte for byte.

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "export/export_fixture.h"
#include "export/frame_exporter.h"
#include "support/message_text.h"

namespace morva {
namespace {

namespace pb = protix::kbag_msgs;
using test::fromText;
using testing::ElementsAre;
using testing::IsEmpty;

class FrameExporterCsv : public test::ExportTest {
 protected:
  FrameExporterCsv() { makeDirectory("csv"); }

  [[nodiscard]] bool exportFrame(const std::string& topic) {
    const MorvaBag::View messages = view(topic);
    log_.clear();
    return FrameExporter(&bag(), out_).exportFrame(topic, messages);
  }
};

TEST_F(FrameExporterCsv, ImuTable) {
  recording_.add("/imu", fromText<pb::ImuMsgArray>(R"(
      msgs { header { timestamp: 1700000000000001 scale: 1000 seq: 7 }
             accel_x: 1500 accel_y: -2500 accel_z: 9810 gyro_x: 1 gyro_y: -1 }
      msgs { header { timestamp: 1700000000005001 scale: 1000000000 seq: 4294967295 }
             accel_x: 123456789012 })"));
  recording_.add("/imu", fromText<pb::ImuMsgArray>(R"(
      msgs { header { timestamp: 1700000000010001 seq: 9 }
             accel_x: 1 accel_y: 2 accel_z: 3 gyro_x: 4 gyro_y: 5 gyro_z: 6 }
      msgs { header { timestamp: 1700000000015001 scale: -2 seq: 10 } gyro_z: 6 })"));
  EXPECT_TRUE(exportFrame("/imu"));
  // 123.456789012 is a single-precision value: 123.456787109375.
  EXPECT_EQ(output("csv/imu.csv"),
            "seq,collect_timestamp,accel_x,accel_y,accel_z,gyro_x,gyro_y,gyro_z\n"
            "7,1700000000000001,1.500000,-2.500000,9.810000,0.001000,-0.001000,0.000000\n"
            "4294967295,1700000000005001,123.456787,0.000000,0.000000,0.000000,0.000000,0.000000\n"
            "9,1700000000010001,1.000000,2.000000,3.000000,4.000000,5.000000,6.000000\n"
            "10,1700000000015001,-0.000000,-0.000000,-0.000000,-0.000000,-0.000000,-12.000000\n");
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(outputs(), ElementsAre("csv/imu.csv"));
}

TEST_F(FrameExporterCsv, MagneticTable) {
  recording_.add("/magnetic", fromText<pb::MagneticMsgArray>(R"(
      msgs { header { timestamp: 1700000000000002 scale: 100 seq: 1 }
             mag_x: 2150 mag_y: -455 mag_z: 4800 calib_mag_x: 11 calib_mag_y: 12 calib_mag_z: 13
             declination: 14 state: 15 }
      msgs { header { timestamp: -1 scale: 1000000000 seq: 2 } mag_x: 123456789012 })"));
  EXPECT_TRUE(exportFrame("/magnetic"));
  EXPECT_EQ(output("csv/magnetic.csv"),
            "seq,collect_timestamp,mag_x,mag_y,mag_z\n"
            "1,1700000000000002,21.500000,-4.550000,48.000000\n"
            "2,-1,123.456787,0.000000,0.000000\n");
}

TEST_F(FrameExporterCsv, LidarTableOfEachLidarTopic) {
  for (const char* const topic : {"/hesai/pandar", "/livox/lidar", "/lidar"}) {
    recording_.add(topic, fromText<pb::LidarPointMsgArray>(R"(
        msgs { header { timestamp: 1700000000000003 scale: 1000 seq: 3 }
               points { x: 1 } points { y: 2 } points { } }
        msgs { header { timestamp: 1700000000100003 seq: 4 } })"));
  }
  for (const char* const topic : {"/hesai/pandar", "/livox/lidar", "/lidar"}) {
    EXPECT_TRUE(exportFrame(topic));
    EXPECT_EQ(output("csv/lidar.csv"),
              "seq,collect_timestamp,pointnums\n"
              "3,1700000000000003,3\n"
              "4,1700000000100003,0\n");
  }
}

TEST_F(FrameExporterCsv, LaterLidarTopicReplacesTheTable) {
  recording_.add("/lidar",
                 fromText<pb::LidarPointMsgArray>("msgs { header { seq: 1 } points { } }"));
  recording_.add("/livox/lidar", fromText<pb::LidarPointMsgArray>("msgs { header { seq: 2 } }"));
  EXPECT_TRUE(exportFrame("/lidar"));
  EXPECT_TRUE(exportFrame("/livox/lidar"));
  EXPECT_EQ(output("csv/lidar.csv"), "seq,collect_timestamp,pointnums\n2,0,0\n");
}

TEST_F(FrameExporterCsv, EncoderTableIsDoublePrecision) {
  recording_.add("/lidar_to_platform", fromText<pb::OdometryMsgArray>(R"(
      msgs { header { timestamp: 1700000000000004 scale: 1000000 seq: 5 }
             qw: 1000000 angle: 123456789 }
      msgs { header { timestamp: 1700000000001004 scale: 1000000 seq: 6 } angle: -3141593 })"));
  EXPECT_TRUE(exportFrame("/lidar_to_platform"));
  // Single precision would print 123.456787.
  EXPECT_EQ(output("csv/encoder.csv"),
            "seq,collect_timestamp,angle\n"
            "5,1700000000000004,123.456789\n"
            "6,1700000000001004,-3.141593\n");
}

TEST_F(FrameExporterCsv, GnssTable) {
  recording_.add("/gnss_data", fromText<pb::GnssMsgArray>(R"(
      msgs { header { timestamp: 1700000000000005 scale: 1000000 seq: 7 }
             status: 2 service: 3 frame: 4 satellite_num: 25 utc_time: 1700000000123456
             latitude: 48.123456789 longitude: -11.987654321
             altitude: 512345678 undulation: 47500001 pdop: 1250000 hdop: 750000 vdop: 1000000
             lat_sigma: 10001 lon_sigma: 20002 hgt_sigma: 30003 }
      msgs { header { timestamp: 1700000000200005 seq: 8 }
             status: -1 service: 4294967295 satellite_num: 0 utc_time: -5 })"));
  EXPECT_TRUE(exportFrame("/gnss_data"));
  EXPECT_EQ(output("csv/gnss_data.csv"),
            "seq,collect_timestamp,navsat_utc_time,navsat_status,navsat_service,satlelite_num,"
            "pdop,hdop,vdop,latitude,longitude,altitude,undulation,frame,"
            "latSigma,lonSigma,hgtSigma\n"
            "7,1700000000000005,1700000000123456,2,3,25,"
            "1.250000,0.750000,1.000000,48.123456789,-11.987654321,464.845677,47.500001,4,"
            "0.010001,0.020002,0.030003\n"
            "8,1700000000200005,-5,-1,-1,0,"
            "0.000000,0.000000,0.000000,0.000000000,0.000000000,0.000000,0.000000,0,"
            "0.000000,0.000000,0.000000\n");
}

TEST_F(FrameExporterCsv, CameraTableOfEveryCameraTopic) {
  const std::vector<std::string> cameras = {
      "camera_left",      "camera_center",     "camera_right",     "camera_left_main",
      "camera_left_seco", "camera_right_main", "camera_right_seco"};
  std::uint32_t seq = 0;
  for (const std::string& camera : cameras) {
    for (const std::string type : {"jpeg", "h264"}) {
      pb::ImageMsgArray array = fromText<pb::ImageMsgArray>(R"(
          msgs { header { timestamp: 1700000000000006 } data: "\000\001\002" width: 1920 height: 1080
                 image_type: 5 }
          msgs { header { timestamp: 1700000000100006 } })");
      array.mutable_msgs(0)->mutable_header()->set_seq(++seq);
      recording_.add("/" + camera + "/" + type, array);
    }
  }
  seq = 0;
  for (const std::string& camera : cameras) {
    for (const std::string type : {"jpeg", "h264"}) {
      EXPECT_TRUE(exportFrame("/" + camera + "/" + type));
      EXPECT_EQ(output("csv/" + camera + "_" + type + ".csv"),
                "seq,collect_timestamp,width,height,frame_size\n" + std::to_string(++seq) +
                    ",1700000000000006,1920,1080,3\n"
                    "0,1700000000100006,0,0,0\n");
    }
  }
  EXPECT_EQ(outputs().size(), 14U);
}

TEST_F(FrameExporterCsv, EmptyViewGivesTheHeaderLineAlone) {
  struct Table {
    const char* topic;
    const char* file;
    const char* header;
  };
  static constexpr Table kTables[] = {
      {"/imu", "csv/imu.csv",
       "seq,collect_timestamp,accel_x,accel_y,accel_z,gyro_x,gyro_y,gyro_z\n"},
      {"/magnetic", "csv/magnetic.csv", "seq,collect_timestamp,mag_x,mag_y,mag_z\n"},
      {"/lidar", "csv/lidar.csv", "seq,collect_timestamp,pointnums\n"},
      {"/lidar_to_platform", "csv/encoder.csv", "seq,collect_timestamp,angle\n"},
      {"/gnss_data", "csv/gnss_data.csv",
       "seq,collect_timestamp,navsat_utc_time,navsat_status,navsat_service,satlelite_num,pdop,hdop,"
       "vdop,latitude,longitude,altitude,undulation,frame,latSigma,lonSigma,hgtSigma\n"},
      {"/camera_left/h264", "csv/camera_left_h264.csv",
       "seq,collect_timestamp,width,height,frame_size\n"},
  };
  MorvaBag closed;
  for (const Table& table : kTables) {
    EXPECT_TRUE(FrameExporter(&closed, out_).exportFrame(table.topic, {}));
    EXPECT_EQ(output(table.file), table.header);
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FrameExporterCsv, UnreadableAndUnparsableMessagesAreSkipped) {
  recording_.add("/lidar_to_platform",
                 fromText<pb::OdometryMsgArray>("msgs { header { seq: 1 } }"));
  recording_.addPayload("/lidar_to_platform", "x", 0);  // a count of 0 cannot be read
  recording_.addPayload("/lidar_to_platform", "\x07 not a message");
  recording_.add("/lidar_to_platform", pb::OdometryMsgArray());
  recording_.add("/lidar_to_platform",
                 fromText<pb::OdometryMsgArray>("msgs { header { seq: 2 } }"));
  EXPECT_TRUE(exportFrame("/lidar_to_platform"));
  EXPECT_EQ(output("csv/encoder.csv"), "seq,collect_timestamp,angle\n1,0,0.000000\n2,0,0.000000\n");
  const MorvaBag::View::MsgIndex undecodable = view("/lidar_to_platform").indexes[2];
  EXPECT_THAT(linesOf("FrameExporter"),
              ElementsAre("<E>TIME [FrameExporter::makeEncoderCsv,L0] message of "
                          "topic[/lidar_to_platform] at offset(" +
                          std::to_string(undecodable.chunkOffset) + ") cannot be decoded!"));
}

TEST_F(FrameExporterCsv, DamagedMessageInTheMiddleLosesItsRowsAlone) {
  for (int seq = 1; seq <= 3; ++seq) {
    recording_.addPayload(
        "/lidar_to_platform",
        fromText<pb::OdometryMsgArray>("msgs { header { seq: " + std::to_string(seq) + " } }")
            .SerializeAsString());
  }
  const MorvaBag::View messages = view("/lidar_to_platform");
  ASSERT_EQ(messages.indexes.size(), 3U);
  bag().close();
  const std::string path = dir_ / "recording.kbag";
  std::string bytes = test::readFile(path);
  // The last byte of the second message's chunk, just before the third one's.
  bytes[messages.indexes[2].chunkOffset - 1] ^= 1;
  test::writeFile(path, bytes);
  ASSERT_EQ(bag().open(path, MorvaBag::BagMode::kRead), 0);

  EXPECT_TRUE(exportFrame("/lidar_to_platform"));
  EXPECT_EQ(output("csv/encoder.csv"), "seq,collect_timestamp,angle\n1,0,0.000000\n3,0,0.000000\n");
  EXPECT_THAT(linesOf("FrameExporter"), IsEmpty());
  EXPECT_FALSE(log_.errors().empty());
}

TEST_F(FrameExporterCsv, ViewOrderDecidesTheRowOrder) {
  for (const char* const seq : {"1", "2", "3"}) {
    recording_.add("/lidar_to_platform", fromText<pb::OdometryMsgArray>(
                                             "msgs { header { seq: " + std::string(seq) + " } }"));
  }
  MorvaBag::View messages = view("/lidar_to_platform");
  std::swap(messages.indexes[0], messages.indexes[2]);
  EXPECT_TRUE(FrameExporter(&bag(), out_).exportFrame("/lidar_to_platform", messages));
  EXPECT_EQ(output("csv/encoder.csv"),
            "seq,collect_timestamp,angle\n3,0,0.000000\n2,0,0.000000\n1,0,0.000000\n");
}

TEST_F(FrameExporterCsv, ExtremeIntegersPrint) {
  pb::ImuMsgArray array;
  pb::ImuMsg* const msg = array.add_msgs();
  msg->mutable_header()->set_scale(std::numeric_limits<std::int64_t>::min());
  msg->mutable_header()->set_timestamp(std::numeric_limits<std::int64_t>::min());
  msg->set_accel_x(std::numeric_limits<std::int64_t>::min());
  recording_.addPayload("/imu", array.SerializeAsString());
  EXPECT_TRUE(exportFrame("/imu"));
  EXPECT_EQ(output("csv/imu.csv"),
            "seq,collect_timestamp,accel_x,accel_y,accel_z,gyro_x,gyro_y,gyro_z\n"
            "0,-9223372036854775808,85070591730234615865843651857942052864.000000,"
            "-0.000000,-0.000000,-0.000000,-0.000000,-0.000000\n");
}

TEST_F(FrameExporterCsv, EachExporterUsesItsOwnBagAndDirectory) {
  recording_.add("/lidar_to_platform",
                 fromText<pb::OdometryMsgArray>("msgs { header { seq: 1 } }"));
  EXPECT_TRUE(exportFrame("/lidar_to_platform"));

  test::RecordingBuilder second;
  second.add("/lidar_to_platform", fromText<pb::OdometryMsgArray>("msgs { header { seq: 2 } }"));
  second.write(dir_ / "second.kbag");
  MorvaBag secondBag;
  ASSERT_EQ(secondBag.open(dir_ / "second.kbag", MorvaBag::BagMode::kRead), 0);
  makeDirectory("second/csv");
  EXPECT_TRUE(
      FrameExporter(&secondBag, path("second"))
          .exportFrame("/lidar_to_platform", secondBag.getView("/lidar_to_platform", 0, -1)));
  EXPECT_EQ(output("csv/encoder.csv"), "seq,collect_timestamp,angle\n1,0,0.000000\n");
  EXPECT_EQ(output("second/csv/encoder.csv"), "seq,collect_timestamp,angle\n2,0,0.000000\n");
}

}  // namespace
}  // namespace morva
