// The tables of the data exporter, byte by byte, with their progress and failures.

#include <array>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "export/data_exporter.h"
#include "export/export_fixture.h"
#include "support/failing_file_calls.h"
#include "support/message_text.h"

namespace morva {
namespace {

namespace fs = std::filesystem;
namespace pb = protix::kbag_msgs;
using test::FailingFileCalls;
using Call = FailingFileCalls::Call;
using test::fromText;
using testing::ElementsAre;
using testing::IsEmpty;

using Handler = bool (DataExporter::*)(osmik::File*, const MorvaBag::View&);

struct Table {
  const char* topic;
  const char* file;
  const char* operation;
  const char* errorText;
  bool logsHeader;
  const char* header;
  Handler handler;
};

constexpr std::array kTables = {
    Table{"/imu", "imu.csv", "unpackImuData", "write imu data error", false,
          "#timestamp gyro_x gyro_y gyro_z acc_x acc_y acc_z\n", &DataExporter::unpackImuData},
    Table{"/magnetic", "magnetic.csv", "unpackMagneticData", "write magnetic data error", true,
          "#timestamp mag_x mag_y mag_z calib_mag_x calib_mag_y calib_mag_z declination state\n",
          &DataExporter::unpackMagneticData},
    Table{"/lidar_to_platform", "motor.csv", "unpackEncoderData", "write encode data error", false,
          "#timestamp qx qy qz qw\n", &DataExporter::unpackEncoderData},
    Table{
        "/gnss_data", "gnss.csv", "unpackGnssData", "write gnss data error", true,
        "#timestamp status latitude longitude altitude cord undulation pdop hdop vdop var_x var_y "
        "var_z satellite_num\n",
        &DataExporter::unpackGnssData},
};

std::string errorLine(const Table& table, const std::string& text) {
  return "<E>TIME [DataExporter::" + std::string(table.operation) + ",L0] " + text;
}

pb::ImuMsgArray imuSamples() {
  return fromText<pb::ImuMsgArray>(R"(
      msgs { header { timestamp: 1700000000123456 scale: 1000 seq: 7 }
             accel_x: 1500 accel_y: -2500 accel_z: 9806 gyro_x: 10 gyro_y: -20 gyro_z: 1 }
      msgs { header { timestamp: 1700000000133456 seq: 8 }
             accel_x: 1 accel_y: 2 accel_z: 3 gyro_x: 4 gyro_y: 5 gyro_z: 6 }
      msgs { header { timestamp: 1 scale: -2 } accel_x: 1500 })");
}

const std::string kImuRows =
    "1700000000.123456 0.010000 -0.020000 0.001000 1.500000 -2.500000 9.806000\n"
    "1700000000.133456 4.000000 5.000000 6.000000 1.000000 2.000000 3.000000\n"
    "0.000001 -0.000000 -0.000000 -0.000000 -3000.000000 -0.000000 -0.000000\n";

}  // namespace

class DataExporterTables : public test::ExportTest {
 protected:
  bool unpack(const std::string& topic, const DataExporter::Progress& progress = {}) {
    const MorvaBag::View messages = view(topic);
    log_.clear();
    return DataExporter(&bag(), out_, progress).exportData(topic, messages);
  }

  /// Three samples, 1.3 being the sequence number in every kind of array.
  void addSamples() {
    const std::string samples(
        "\x0A\x04\x0A\x02\x18\x01\x0A\x04\x0A\x02\x18\x02\x0A\x04\x0A\x02\x18\x03", 18);
    for (const Table& table : kTables) recording_.addPayload(table.topic, samples, 3);
  }

  /// Runs a handler on a file without a buffer, so that every row is a write of its own.
  bool unpackUnbuffered(const Table& table) {
    const MorvaBag::View messages = view(table.topic);
    log_.clear();
    osmik::File file;
    EXPECT_TRUE(file.open(path(table.file), osmik::OpenMode::kWrite));
    DataExporter exporter(&bag(), out_, {});
    return (exporter.*table.handler)(&file, messages);
  }
};

TEST_F(DataExporterTables, ImuHasGyroscopeFirst) {
  recording_.add("/imu", imuSamples());
  EXPECT_TRUE(unpack("/imu"));
  EXPECT_EQ(output("imu.csv"), kTables[0].header + kImuRows);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DataExporterTables, MagneticHasDeclinationAndSignedState) {
  recording_.add("/magnetic", fromText<pb::MagneticMsgArray>(R"(
      msgs { header { timestamp: 2500000 scale: 100 } mag_x: 123 mag_y: -4500 mag_z: 1 calib_mag_x: 7
             calib_mag_y: 8 calib_mag_z: 9 declination: -1234567 state: 4294967295 }
      msgs { header { timestamp: 3500000 scale: 0 } declination: 5 state: 3 })"));
  EXPECT_TRUE(unpack("/magnetic"));
  EXPECT_EQ(output("magnetic.csv"),
            kTables[1].header +
                std::string("2.500000 1.230000 -45.000000 0.010000 0.070000 0.080000 0.090000 "
                            "-12345.670000 -1\n"
                            "3.500000 0.000000 0.000000 0.000000 0.000000 0.000000 0.000000 "
                            "5.000000 3\n"));
}

TEST_F(DataExporterTables, EncoderHasTheQuaternionInOrderXyzw) {
  recording_.add("/lidar_to_platform", fromText<pb::OdometryMsgArray>(R"(
      msgs { header { timestamp: 1700000000000001 scale: 1000000 }
             qw: 500000 qx: -500000 qy: 707107 qz: 1 angle: 99 })"));
  EXPECT_TRUE(unpack("/lidar_to_platform"));
  EXPECT_EQ(output("motor.csv"), kTables[2].header + std::string("1700000000.000001 -0.500000 "
                                                                 "0.707107 0.000001 0.500000\n"));
}

TEST_F(DataExporterTables, GnssHasMappedStatusHeightAboveGeoidAndPlainSigmas) {
  recording_.add("/gnss_data", fromText<pb::GnssMsgArray>(R"(
      msgs { header { timestamp: 1700000000500000 scale: 1000 }
             status: 2 service: 9 frame: 4 satellite_num: 21 utc_time: 5
             latitude: 31.123456789012 longitude: -121.5 altitude: 50250 undulation: 10125
             pdop: 1500 hdop: 900 vdop: 1200 lat_sigma: 10 lon_sigma: 20 hgt_sigma: 30 }
      msgs { header { timestamp: 1700000001500000 } status: -1 }
      msgs { header { timestamp: 1700000002500000 } status: 3 frame: 4294967295 })"));
  EXPECT_TRUE(unpack("/gnss_data"));
  EXPECT_EQ(
      output("gnss.csv"),
      kTables[3].header +
          std::string(
              "1700000000.500000 3 31.123456789 -121.500000000 40.125000 4 10.125000 1.500000 "
              "0.900000 1.200000 0.010000 0.020000 0.030000 21\n"
              "1700000001.500000 999 0.000000000 0.000000000 0.000000 0 0.000000 0.000000 "
              "0.000000 0.000000 0.000000 0.000000 0.000000 0\n"
              "1700000002.500000 4 0.000000000 0.000000000 0.000000 -1 0.000000 0.000000 "
              "0.000000 0.000000 0.000000 0.000000 0.000000 0\n"));
}

TEST_F(DataExporterTables, EmptyViewGivesTheHeaderAloneAndNoProgress) {
  for (const Table& table : kTables) {
    recording_.addTopic(table.topic);
  }
  int calls = 0;
  for (const Table& table : kTables) {
    EXPECT_TRUE(unpack(table.topic, [&](unsigned long) { return ++calls > 0; }));
    EXPECT_EQ(output(table.file), table.header);
  }
  EXPECT_EQ(calls, 0);
}

TEST_F(DataExporterTables, ReplacesAnOlderFile) {
  recording_.add("/imu", imuSamples());
  test::writeFile(path("imu.csv"), std::string(5000, 'x'));
  EXPECT_TRUE(unpack("/imu"));
  EXPECT_EQ(output("imu.csv"), kTables[0].header + kImuRows);
}

TEST_F(DataExporterTables, SkipsMessagesThatCannotBeReadOrParsed) {
  recording_.add("/imu", imuSamples());
  recording_.addPayload("/imu", "\xFF\xFF no message");
  recording_.addPayload("/imu", "cannot be read", 0);
  recording_.add("/imu", imuSamples());
  std::vector<unsigned long> totals;
  EXPECT_TRUE(unpack("/imu", [&](unsigned long total) {
    totals.push_back(total);
    return true;
  }));
  EXPECT_EQ(output("imu.csv"), kTables[0].header + kImuRows + kImuRows);
  const unsigned long size = imuSamples().ByteSizeLong();
  EXPECT_THAT(totals, ElementsAre(size, size + 13, size + 27, 2 * size + 27));
}

TEST_F(DataExporterTables, ProgressEndsAtTheTopicsTotal) {
  for (int i = 0; i < 5; ++i) recording_.add("/imu", imuSamples());
  std::vector<unsigned long> totals;
  EXPECT_TRUE(unpack("/imu", [&](unsigned long total) {
    totals.push_back(total);
    return true;
  }));
  ASSERT_EQ(totals.size(), 5U);
  EXPECT_TRUE(std::is_sorted(totals.begin(), totals.end()));
  EXPECT_EQ(totals.back(), bag().getInfo().topics[0].total);
}

TEST_F(DataExporterTables, StopAfterTheFirstMessageIsNoFailure) {
  recording_.add("/imu", imuSamples());
  recording_.add("/imu", imuSamples());
  int calls = 0;
  EXPECT_TRUE(unpack("/imu", [&](unsigned long) { return ++calls == 0; }));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(output("imu.csv"), kTables[0].header + kImuRows);
}

TEST_F(DataExporterTables, UnknownTopicLogsAndFails) {
  recording_.add("/imu", imuSamples());
  EXPECT_FALSE(DataExporter(&bag(), out_, {}).exportData("/camera_left/jpeg", {}));
  EXPECT_THAT(linesOf("DataExporter"),
              ElementsAre("<E>TIME [DataExporter::exportData,L0] no default file for "
                          "topic: [/camera_left/jpeg]!"));
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(DataExporterTables, FileThatCannotBeCreatedLogsAndFails) {
  addSamples();
  out_ += "/missing";
  for (const Table& table : kTables) {
    EXPECT_FALSE(unpack(table.topic));
    EXPECT_THAT(log_.lines(), ElementsAre("<E>TIME [DataExporter::exportData,L0] create file(" +
                                          path(table.file) + ") error!"));
  }
}

TEST_F(DataExporterTables, HeaderThatIsNotWrittenFails) {
  addSamples();
  static_cast<void>(bag());
  for (const Table& table : kTables) {
    FailingFileCalls calls;
    calls.onlyFilesThatEndIn(".csv");
    calls.fail(Call::kPwrite);
    EXPECT_FALSE(unpackUnbuffered(table));
    if (table.logsHeader) {
      EXPECT_THAT(log_.lines(), ElementsAre(errorLine(table, "write header error: -1!")));
    } else {
      EXPECT_THAT(log_.lines(), IsEmpty()) << table.topic;
    }
  }
}

TEST_F(DataExporterTables, RowThatIsNotWrittenWholeEndsTheTopic) {
  addSamples();
  static_cast<void>(bag());
  for (const Table& table : kTables) {
    FailingFileCalls calls;
    calls.onlyFilesThatEndIn(".csv");
    calls.fillDiskAfter(static_cast<std::int64_t>(std::string(table.header).size()) + 10);
    EXPECT_FALSE(unpackUnbuffered(table));
    EXPECT_THAT(log_.lines(),
                ElementsAre(errorLine(table, std::string(table.errorText) + ": 10!")));
    EXPECT_EQ(output(table.file), table.header + std::string("0.000000 ") +
                                      (table.handler == &DataExporter::unpackGnssData ? "9" : "0"));
  }
}

TEST_F(DataExporterTables, FailedFlushOrCloseFailsTheTopic) {
  addSamples();
  static_cast<void>(bag());
  for (const Table& table : kTables) {
    for (const Call call : {Call::kPwrite, Call::kClose}) {
      const MorvaBag::View messages = view(table.topic);
      log_.clear();
      FailingFileCalls calls;
      calls.onlyFilesThatEndIn(".csv");
      calls.fail(call);
      EXPECT_FALSE(DataExporter(&bag(), out_, {}).exportData(table.topic, messages));
      EXPECT_THAT(log_.lines(),
                  ElementsAre(errorLine(table, std::string(table.errorText) + ": -1!")));
    }
  }
}

TEST_F(DataExporterTables, EveryTopicHasItsFile) {
  const std::vector<std::pair<std::string, std::string>> files = {
      {"/imu", "imu.csv"},
      {"/magnetic", "magnetic.csv"},
      {"/hesai/pandar", "lidar_points/.gitkeep"},
      {"/livox/lidar", "lidar_points/.gitkeep"},
      {"/lidar", "lidar_points/.gitkeep"},
      {"/lidar_to_platform", "motor.csv"},
      {"/gnss_data", "gnss.csv"},
      {"/camera_left/h264", "images/camera_0/.gitkeep"},
      {"/camera_right/h264", "images/camera_1/.gitkeep"},
      {"/camera_left_main/h264", "images/camera_0/.gitkeep"},
      {"/camera_right_main/h264", "images/camera_1/.gitkeep"},
      {"/config_file", "calib/config/.gitkeep"},
      {"/project_data", "project_data/.gitkeep"},
      {"/raw_gnss_log", "raw_gnss_log.txt"},
      {"/raw_ntrip_log", "raw_ntrip_log.data"},
      {"/raw_ppk_log", "raw_ppk_log.data"}};
  for (const auto& [topic, file] : files) EXPECT_EQ(DataExporter::dataFile(topic), file);
  for (const char* const topic :
       {"", "/", "imu", "/camera_center/h264", "/camera_left_seco/h264"}) {
    EXPECT_EQ(DataExporter::dataFile(topic), "");
  }
}

TEST_F(DataExporterTables, EveryExporterWritesFromItsOwnBagIntoItsOwnDirectory) {
  recording_.add("/imu", imuSamples());
  EXPECT_TRUE(unpack("/imu"));
  test::RecordingBuilder other;
  other.add("/imu", fromText<pb::ImuMsgArray>("msgs { header { timestamp: 5000000 } }"));
  MorvaBag otherBag;
  ASSERT_EQ(otherBag.open(other.write(dir_ / "other.kbag"), MorvaBag::BagMode::kRead), 0);
  fs::create_directory(dir_ / "other");
  EXPECT_TRUE(DataExporter(&otherBag, dir_ / "other", {})
                  .exportData("/imu", otherBag.getView("/imu", 0, -1)));
  EXPECT_EQ(test::readFile(dir_ / "other/imu.csv"),
            kTables[0].header + std::string("5.000000 0.000000 0.000000 0.000000 0.000000 0.000000 "
                                            "0.000000\n"));
  EXPECT_EQ(output("imu.csv"), kTables[0].header + kImuRows);
}

class DataExporterCorrectedImu : public DataExporterTables {
 protected:
  bool exportCorrected(const SensorParameters& params,
                       const DataExporter::Progress& progress = {}) {
    const MorvaBag::View messages = view("/imu");
    log_.clear();
    return DataExporter(&bag(), out_, progress).exportCorrectedImuData(params, messages);
  }
  static std::string line(const std::string& text) {
    return "<E>TIME [DataExporter::exportCorrectedImuData,L0] " + text;
  }
};

TEST_F(DataExporterCorrectedImu, AppliesTheModelToEveryRow) {
  recording_.add("/imu", imuSamples());
  SensorParameters params;
  params.imu.calibrated = true;
  params.imu.Ba << 0.5F, 0, 0;
  params.imu.Ka << 2, 0, 0, 0, 1, 0, 0, 0, 1;
  params.imu.Bg << 0, 0, 1;
  params.imu.Tg << 1, 0, 0, 0, 1, 0, 1, 0, 1;
  EXPECT_TRUE(exportCorrected(params));
  EXPECT_EQ(
      output("imu.csv"),
      kTables[0].header +
          std::string("1700000000.123456 0.010000 -0.020000 -0.989000 2.000000 -2.500000 9.806000\n"
                      "1700000000.133456 4.000000 5.000000 9.000000 1.000000 2.000000 3.000000\n"
                      "0.000001 -0.000000 -0.000000 -1.000000 -6001.000000 -0.000000 -0.000000\n"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DataExporterCorrectedImu, EqualsTheRawTableWithoutCalibration) {
  recording_.add("/imu", imuSamples());
  SensorParameters params;
  params.imu.Ka.setConstant(5.0F);
  EXPECT_TRUE(exportCorrected(params));
  EXPECT_EQ(output("imu.csv"), kTables[0].header + kImuRows);
}

TEST_F(DataExporterCorrectedImu, ReportsProgressAndStops) {
  for (int i = 0; i < 3; ++i) recording_.add("/imu", imuSamples());
  std::vector<unsigned long> totals;
  EXPECT_TRUE(exportCorrected({}, [&](unsigned long total) {
    totals.push_back(total);
    return totals.size() < 2;
  }));
  const unsigned long size = imuSamples().ByteSizeLong();
  EXPECT_THAT(totals, ElementsAre(size, 2 * size));
  EXPECT_EQ(output("imu.csv"), kTables[0].header + kImuRows + kImuRows);
}

TEST_F(DataExporterCorrectedImu, FailuresHaveTheirLines) {
  recording_.add("/imu", imuSamples());
  static_cast<void>(bag());
  for (const Call call : {Call::kPwrite, Call::kClose}) {
    FailingFileCalls calls;
    calls.onlyFilesThatEndIn(".csv");
    calls.fail(call);
    EXPECT_FALSE(exportCorrected({}));
    EXPECT_THAT(log_.lines(), ElementsAre(line("write imu data error: -1!")));
  }
  out_ += "/missing";
  EXPECT_FALSE(exportCorrected({}));
  EXPECT_THAT(log_.lines(), ElementsAre(line("create file(" + path("imu.csv") + ") error!")));
}

class DataExporterFiles : public DataExporterTables {
 protected:
  DataExporterFiles() {
    makeDirectory("calib/config");
    makeDirectory("project_data");
  }
};

TEST_F(DataExporterFiles, RawLogsAreConcatenated) {
  const std::vector<std::pair<std::string, std::string>> logs = {
      {"/raw_gnss_log", "raw_gnss_log.txt"},
      {"/raw_ntrip_log", "raw_ntrip_log.data"},
      {"/raw_ppk_log", "raw_ppk_log.data"}};
  for (const auto& [topic, file] : logs) {
    recording_.add(topic,
                   fromText<pb::LogMsgArray>("msgs { data: 'one\\n' } msgs { data: 'two' }"));
    recording_.add(topic, fromText<pb::LogMsgArray>("msgs { } msgs { data: '\\000three' }"));
  }
  for (const auto& [topic, file] : logs) {
    EXPECT_TRUE(unpack(topic));
    EXPECT_EQ(output(file), std::string("one\ntwo\0three", 13));
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DataExporterFiles, RawPayloadThatIsNotWrittenIsAWarningAndTheNextIsTried) {
  recording_.add(
      "/raw_gnss_log",
      fromText<pb::LogMsgArray>("msgs { data: 'one' } msgs { data: 'two' } msgs { data: '3' }"));
  const MorvaBag::View messages = view("/raw_gnss_log");
  log_.clear();
  osmik::File file;
  FailingFileCalls calls;
  calls.onlyFilesThatEndIn(".txt");
  calls.fail(Call::kPwrite, 2, 1);
  ASSERT_TRUE(file.open(path("raw.txt"), osmik::OpenMode::kWrite));
  EXPECT_TRUE(DataExporter(&bag(), out_, {}).unpackRawDataLog(&file, messages));
  EXPECT_THAT(log_.lines(),
              ElementsAre("<W>TIME [DataExporter::unpackRawDataLog,L0] write raw data "
                          "log error: -1!"));
  EXPECT_EQ(output("raw.txt"), "one3");
}

TEST_F(DataExporterFiles, CarriedFilesLandInTheirDirectoryUnderTheirLastName) {
  for (const auto& [topic, folder] :
       {std::pair{"/config_file", "calib/config/"}, std::pair{"/project_data", "project_data/"}}) {
    recording_.add(topic, fromText<pb::FileMsgArray>(R"(
        msgs { name: 'a/b/imu.yaml' plain: 'old' } msgs { name: 'imu.yaml' scrambled: 'new' }
        msgs { name: '../../escape' plain: 'x' } msgs { name: 'none' })"));
  }
  for (const auto& [topic, folder] :
       {std::pair{"/config_file", "calib/config/"}, std::pair{"/project_data", "project_data/"}}) {
    EXPECT_TRUE(unpack(topic));
    EXPECT_EQ(output(folder + std::string("imu.yaml")), "new");
    EXPECT_EQ(output(folder + std::string("escape")), "x");
    EXPECT_EQ(output(folder + std::string("none")), "");
    EXPECT_EQ(output(folder + std::string(".gitkeep")), "");
  }
  EXPECT_EQ(outputs().size(), 8U);
}

TEST_F(DataExporterFiles, CarriedFileThatCannotBeWrittenIsAWarningOfItsHandler) {
  for (const auto& [topic, operation, folder] :
       {std::tuple{"/config_file", "unpackConfigFiles", "calib/config/"},
        std::tuple{"/project_data", "unpackProjectData", "project_data/"}}) {
    recording_.add(topic,
                   fromText<pb::FileMsgArray>(
                       "msgs { name: 'dir/' plain: 'x' } msgs { name: 'full' plain: 'content' } "
                       "msgs { name: 'good' plain: 'y' }"));
  }
  for (const auto& [topic, operation, folder] :
       {std::tuple{"/config_file", "unpackConfigFiles", "calib/config/"},
        std::tuple{"/project_data", "unpackProjectData", "project_data/"}}) {
    static_cast<void>(view(topic));
    FailingFileCalls calls;
    calls.onlyFilesThatEndIn("full");
    calls.fillDiskAfter(3);
    EXPECT_TRUE(unpack(topic));
    const std::string prefix = "<W>TIME [DataExporter::" + std::string(operation) + ",L0] ";
    EXPECT_THAT(log_.lines(), ElementsAre(prefix + "create file(" + path(folder) + ") error!",
                                          prefix + "write file content error: 3!"));
    EXPECT_EQ(output(folder + std::string("good")), "y");
  }
}

TEST_F(DataExporterFiles, MessageThatCannotBeDecodedIsNamedAndTheNextIsTaken) {
  const std::vector<std::pair<std::string, std::string>> operations = {
      {"/imu", "unpackImuData"},
      {"/magnetic", "unpackMagneticData"},
      {"/lidar_to_platform", "unpackEncoderData"},
      {"/gnss_data", "unpackGnssData"},
      {"/lidar", "unpackLidarData"},
      {"/camera_left/h264", "unpackCameraImage"},
      {"/config_file", "unpackConfigFiles"},
      {"/project_data", "unpackProjectData"},
      {"/raw_ppk_log", "unpackRawDataLog"}};
  makeDirectory("lidar_points");
  makeDirectory("images/camera_0");
  for (const auto& [topic, operation] : operations) recording_.addPayload(topic, "\xFF\xFF");
  for (const auto& [topic, operation] : operations) {
    std::vector<unsigned long> totals;
    EXPECT_TRUE(unpack(topic, [&](unsigned long total) {
      totals.push_back(total);
      return true;
    }));
    EXPECT_THAT(log_.lines(), ElementsAre("<E>TIME [DataExporter::" + operation +
                                          ",L0] message of topic[" + topic + "] at offset(" +
                                          std::to_string(view(topic).indexes[0].chunkOffset) +
                                          ") cannot be decoded!"));
    EXPECT_THAT(totals, ElementsAre(2));
  }
}

TEST_F(DataExporterFiles, NameThatIsNotUtf8CostsItsMessageAndAnErrorLine) {
  // Name "\xE4.yaml", as older systems write it, and content "x".
  recording_.addPayload("/config_file", "\x0A\x0B\x12\x06\xE4.yaml\x1A\x01x");
  recording_.add("/config_file", fromText<pb::FileMsgArray>("msgs { name: 'good' plain: 'y' }"));
  EXPECT_TRUE(unpack("/config_file"));
  EXPECT_EQ(output("calib/config/good"), "y");
  EXPECT_THAT(log_.lines(),
              ElementsAre("<E>TIME [DataExporter::unpackConfigFiles,L0] message of "
                          "topic[/config_file] at offset(" +
                          std::to_string(view("/config_file").indexes[0].chunkOffset) +
                          ") cannot be decoded!"));
}

TEST_F(DataExporterFiles, ReportProgressAndStop) {
  for (const char* const topic : {"/config_file", "/raw_ppk_log"}) {
    recording_.addPayload(topic, "12345").addPayload(topic, "1234567").addPayload(topic, "1");
  }
  for (const char* const topic : {"/config_file", "/raw_ppk_log"}) {
    std::vector<unsigned long> totals;
    EXPECT_TRUE(unpack(topic, [&](unsigned long total) {
      totals.push_back(total);
      return totals.size() < 2;
    }));
    EXPECT_THAT(totals, ElementsAre(5, 12));
  }
}

}  // namespace morva
