// The point clouds of the data exporter, as recorded and corrected.

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "export/data_exporter.h"
#include "export/export_fixture.h"
#include "export/pcd_writer.h"
#include "support/failing_file_calls.h"
#include "support/message_text.h"
#include "support/no_more_threads.h"
#include "support/pcd_file.h"

namespace morva {
namespace {

namespace fs = std::filesystem;
namespace pb = protix::kbag_msgs;
using test::FailingFileCalls;
using Call = FailingFileCalls::Call;
using test::fromText;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::int64_t kStartUs = 1'700'000'000'000'000;
constexpr double kRateRadPerS = 2.0;

std::string warning(const std::string& operation, const std::string& text) {
  return "<W>TIME [DataExporter::" + operation + ",L0] " + text;
}

/// A point as a PCD file tells of it.
struct Row {
  double x = 0, y = 0, z = 0, time = 0;
};

std::vector<Row> rowsOf(const std::string& pcd) {
  std::istringstream lines(pcd.substr(pcd.find("DATA ascii\n") + 11));
  std::vector<Row> rows;
  Row row;
  double skip = 0;
  unsigned ring = 0;
  while (lines >> row.x >> row.y >> row.z >> skip >> skip >> skip >> skip >> row.time >> ring) {
    rows.push_back(row);
  }
  return rows;
}

}  // namespace

class DataExporterLidar : public test::ExportTest {
 protected:
  DataExporterLidar() { makeDirectory("lidar_points"); }

  bool unpack(const std::string& topic, const DataExporter::Progress& progress = {}) {
    const MorvaBag::View messages = view(topic);
    log_.clear();
    return DataExporter(&bag(), out_, progress).exportData(topic, messages);
  }
};

TEST_F(DataExporterLidar, EveryFrameBecomesAFileNamedAfterItsTime) {
  recording_.add("/lidar", fromText<pb::LidarPointMsgArray>(R"(
      msgs { header { timestamp: 1700000000123456 scale: 1000 seq: 1 }
             points { x: 1500 y: -2500 z: 1 intensity: 300 ring: 65537 time_offset: -500 }
             points { x: 0 y: 123456 z: -1 intensity: 7 ring: 31 time_offset: 99999 } }
      msgs { header { timestamp: 1700000000223456 } })"));
  EXPECT_TRUE(unpack("/lidar"));
  EXPECT_THAT(outputs(), ElementsAre("lidar_points/.gitkeep", "lidar_points/1700000000.123456.pcd",
                                     "lidar_points/1700000000.223456.pcd"));
  EXPECT_EQ(
      output("lidar_points/1700000000.123456.pcd"),
      test::pcdHeader(2) +
          "1.500000 -2.500000 0.001000 0.000000 0.000000 0.000000 44.000000 1700000000.122956 1\n"
          "0.000000 123.456001 -0.001000 0.000000 0.000000 0.000000 7.000000 1700000000.223455 "
          "31\n");
  EXPECT_EQ(output("lidar_points/1700000000.223456.pcd"), makePcdHeader(0));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DataExporterLidar, EveryLidarTopicIsUnpacked) {
  for (const char* const topic : {"/lidar", "/livox/lidar", "/hesai/pandar"}) {
    test::RecordingBuilder recording;
    recording.add(topic,
                  fromText<pb::LidarPointMsgArray>("msgs { header { timestamp: 5000000 } }"));
    MorvaBag one;
    ASSERT_EQ(
        one.open(recording.write(dir_ / (std::to_string(std::string(topic).size()) + ".kbag")),
                 MorvaBag::BagMode::kRead),
        0);
    EXPECT_TRUE(DataExporter(&one, out_, {}).exportData(topic, one.getView(topic, 0, -1)));
    EXPECT_THAT(outputs(), ElementsAre("lidar_points/.gitkeep", "lidar_points/5.000000.pcd"));
    fs::remove(path("lidar_points/5.000000.pcd"));
  }
}

TEST_F(DataExporterLidar, LaterOfTwoFramesOfOneTimeRemains) {
  recording_.add("/lidar", fromText<pb::LidarPointMsgArray>(R"(
      msgs { header { timestamp: 5000000 } points { x: 1 } points { x: 1 } }
      msgs { header { timestamp: 5000000 } points { x: 2 } })"));
  EXPECT_TRUE(unpack("/lidar"));
  const std::vector<Row> rows = rowsOf(output("lidar_points/5.000000.pcd"));
  ASSERT_THAT(rows, SizeIs(1));
  EXPECT_EQ(rows[0].x, 2.0);
}

TEST_F(DataExporterLidar, FileThatCannotBeCreatedIsAWarningAndTheNextIsTried) {
  recording_.add("/lidar", fromText<pb::LidarPointMsgArray>(R"(
      msgs { header { timestamp: 5000000 } points { x: 1 } }
      msgs { header { timestamp: 6000000 } points { x: 2 } })"));
  makeDirectory("lidar_points/5.000000.pcd");
  EXPECT_TRUE(unpack("/lidar"));
  EXPECT_THAT(log_.lines(), ElementsAre(warning(
                                "unpackLidarData",
                                "create file(" + path("lidar_points/5.000000.pcd") + ") error!")));
  EXPECT_THAT(rowsOf(output("lidar_points/6.000000.pcd")), SizeIs(1));
}

TEST_F(DataExporterLidar, CloudThatFillsTheDiskIsRemovedAndTheNextIsTried) {
  recording_.add("/lidar", fromText<pb::LidarPointMsgArray>(R"(
      msgs { header { timestamp: 5000000 } points { x: 1 } }
      msgs { header { timestamp: 6000000 } points { x: 2 } })"));
  static_cast<void>(view("/lidar"));
  FailingFileCalls calls;
  calls.onlyFilesThatEndIn("5.000000.pcd");
  calls.fillDiskAfter(100);
  EXPECT_TRUE(unpack("/lidar"));
  EXPECT_THAT(log_.lines(),
              ElementsAre("<E>TIME [DataExporter::unpackLidarData,L0] save pcd error: " +
                          path("lidar_points/5.000000.pcd") + "(No space left on device)!"));
  EXPECT_THAT(outputs(), ElementsAre("lidar_points/.gitkeep", "lidar_points/6.000000.pcd"));
}

TEST_F(DataExporterLidar, EmptyViewGivesThePlaceholderAlone) {
  recording_.addTopic("/lidar");
  int calls = 0;
  EXPECT_TRUE(unpack("/lidar", [&](unsigned long) { return ++calls > 0; }));
  EXPECT_THAT(outputs(), ElementsAre("lidar_points/.gitkeep"));
  EXPECT_EQ(calls, 0);
}

TEST_F(DataExporterLidar, PlaceholderThatCannotBeClosedFailsTheTopic) {
  recording_.addTopic("/lidar");
  static_cast<void>(view("/lidar"));
  FailingFileCalls calls;
  calls.onlyFilesThatEndIn(".gitkeep");
  calls.fail(Call::kClose, 1, 1, EIO);
  EXPECT_FALSE(unpack("/lidar"));
  EXPECT_THAT(log_.lines(),
              ElementsAre("<E>TIME [DataExporter::unpackLidarData,L0] save pcd error: " +
                          path("lidar_points/.gitkeep") + "(Input/output error)!"));
}

TEST_F(DataExporterLidar, StopsWhenTold) {
  for (const char* const message :
       {"msgs { header { timestamp: 5000000 } }", "msgs { header { timestamp: 6000000 } }"}) {
    recording_.add("/lidar", fromText<pb::LidarPointMsgArray>(message));
  }
  EXPECT_TRUE(unpack("/lidar", [](unsigned long) { return false; }));
  EXPECT_THAT(outputs(), ElementsAre("lidar_points/.gitkeep", "lidar_points/5.000000.pcd"));
}

/// A motor that turns about z at kRateRadPerS from kStartUs on, and points 10 m before the lidar.
/// The true position of a point is thus known from its time alone.
class DataExporterCorrectedLidar : public DataExporterLidar {
 protected:
  static constexpr char kOperation[] = "exportCorrectedLidarData";

  /// Motor records every millisecond, `count` of them, from a time after the start on.
  static pb::OdometryMsgArray motorMessage(std::int64_t fromUs, int count) {
    pb::OdometryMsgArray array;
    constexpr double kScale = 1e9;
    for (int i = 0; i < count; ++i) {
      const std::int64_t timeUs = fromUs + 1000 * i;
      const double angle = kRateRadPerS * static_cast<double>(timeUs) * 1e-6;
      pb::OdometryMsg* const record = array.add_msgs();
      record->mutable_header()->set_timestamp(kStartUs + timeUs);
      record->mutable_header()->set_scale(static_cast<std::int64_t>(kScale));
      record->set_qw(std::llround(std::cos(angle / 2) * kScale));
      record->set_qz(std::llround(std::sin(angle / 2) * kScale));
    }
    return array;
  }

  /// A scan of 11 points over a tenth of a second.
  static pb::LidarPointMsgArray lidarMessage(std::int64_t atUs) {
    pb::LidarPointMsgArray array;
    pb::LidarPointMsg* const scan = array.add_msgs();
    scan->mutable_header()->set_timestamp(kStartUs + atUs);
    for (int i = 0; i <= 10; ++i) {
      pb::LidarPoint* const point = scan->add_points();
      point->set_x(10);
      point->set_time_offset(10'000 * i - 500 * (i % 3));
    }
    return array;
  }

  /// Ten seconds in the order in which a device would record them.
  void addRecording(int seconds = 1) {
    for (int tenth = 0; tenth < 10 * seconds; ++tenth) {
      recording_.add("/lidar_to_platform", motorMessage(100'000 * tenth, 100));
      if (tenth > 0) recording_.add("/lidar", lidarMessage(100'000 * (tenth - 1) + 50'000));
    }
  }

  /// Adds the scans of a second, whose motor records are there, and expects sound clouds of them.
  void expectCorrectedScans() {
    for (int tenth = 0; tenth < 9; ++tenth)
      recording_.add("/lidar", lidarMessage(100'000 * tenth + 50'000));
    EXPECT_TRUE(exportCorrected());
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_LT(worstError(), kToleranceM);
  }

  bool exportCorrected(const DataExporter::Progress& progress = {},
                       const SensorParameters& params = {}) {
    const MorvaBag::View lidar = view("/lidar");
    const MorvaBag::View motor = view("/lidar_to_platform");
    log_.clear();
    return DataExporter(&bag(), out_, progress).exportCorrectedLidarData(params, lidar, motor);
  }

  /// The same of another recording.
  bool exportCorrectedOf(const std::string& path) {
    MorvaBag other;
    if (other.open(path, MorvaBag::BagMode::kRead) != 0) return false;
    log_.clear();
    return DataExporter(&other, out_, {})
        .exportCorrectedLidarData({}, other.getView("/lidar", 0, -1),
                                  other.getView("/lidar_to_platform", 0, -1));
  }

  /// Largest distance of a point of all clouds from where it truly is, m.
  [[nodiscard]] double worstError() const {
    double worst = 0.0;
    for (const std::string& name : outputs()) {
      for (const Row& row : rowsOf(output(name))) {
        const double angle = kRateRadPerS * (row.time - static_cast<double>(kStartUs) * 1e-6);
        worst = std::max(
            worst, std::hypot(row.x - 10 * std::cos(angle), row.y - 10 * std::sin(angle), row.z));
      }
    }
    return worst;
  }
  // Rows have six decimals and times whole microseconds (20 um at this speed and range).
  static constexpr double kToleranceM = 3e-5;
};

TEST_F(DataExporterCorrectedLidar, EveryPointTurnsWithTheMotorAtItsOwnTime) {
  addRecording(2);
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(outputs(), SizeIs(19));
  EXPECT_EQ(outputs().front(), "lidar_points/1700000000.050000.pcd");
  EXPECT_LT(worstError(), kToleranceM);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DataExporterCorrectedLidar, TransformsComeFromTheCalibration) {
  addRecording();
  SensorParameters params;
  params.motor.given = true;
  params.motor.transform(2, 3) = -0.5F;     // motor to lidar: the lidar is 0.5 m above the motor
  params.imuMotor.transform(2, 3) = -1.0F;  // IMU to motor: the motor is 1 m above the IMU
  EXPECT_TRUE(exportCorrected({}, params));
  ASSERT_THAT(outputs(), SizeIs(9));
  for (const Row& row : rowsOf(output(outputs()[4]))) EXPECT_NEAR(row.z, 1.5, 1e-6);
}

TEST_F(DataExporterCorrectedLidar, MotorMessagesOutOfOrderAreSorted) {
  const std::vector<int> order{3, 0, 2, 1, 7, 4, 6, 5, 9, 8};
  for (const int tenth : order)
    recording_.add("/lidar_to_platform", motorMessage(100'000 * tenth, 100));
  expectCorrectedScans();
}

TEST_F(DataExporterCorrectedLidar, MotorRecordsOutOfOrderOrRepeatedInAMessageAreSorted) {
  pb::OdometryMsgArray array = motorMessage(0, 1000);
  for (int i = 0; i < 500; ++i) array.mutable_msgs()->SwapElements(i, (i * 617) % 1000);
  for (int i = 0; i < 300; ++i) *array.add_msgs() = array.msgs(3 * i);
  recording_.add("/lidar_to_platform", array);
  expectCorrectedScans();
}

TEST_F(DataExporterCorrectedLidar, LidarMessagesOutOfOrderStepBack) {
  for (int tenth = 0; tenth < 100; ++tenth) {
    recording_.add("/lidar_to_platform", motorMessage(100'000 * tenth, 100));
  }
  for (const int tenth : {30, 5, 90, 0, 60, 31, 97, 1}) {
    recording_.add("/lidar", lidarMessage(100'000 * tenth + 50'000));
  }
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(outputs(), SizeIs(8));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_LT(worstError(), kToleranceM);
}

TEST_F(DataExporterCorrectedLidar, TopicsMayBeRecordedOneAfterTheOther) {
  for (const bool motorFirst : {false, true}) {
    test::RecordingBuilder recording;
    for (const bool isMotor : {motorFirst, !motorFirst}) {
      for (int tenth = 0; tenth < 100; ++tenth) {
        if (isMotor) {
          recording.add("/lidar_to_platform", motorMessage(100'000 * tenth, 101));
        } else {
          recording.add("/lidar", lidarMessage(100'000 * tenth));
        }
      }
    }
    EXPECT_TRUE(exportCorrectedOf(recording.write(dir_ / (motorFirst ? "a.kbag" : "b.kbag"))));
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_THAT(outputs(), SizeIs(100));
    EXPECT_LT(worstError(), kToleranceM);
  }
}

TEST_F(DataExporterCorrectedLidar, WrongTimesOfSingleMessagesDoNotDisturbTheOthers) {
  constexpr std::int64_t kYearUs = 31'536'000'000'000;
  for (int tenth = 0; tenth < 20; ++tenth) {
    recording_.add("/lidar_to_platform", motorMessage(100'000 * tenth, 100));
    if (tenth == 5) recording_.add("/lidar_to_platform", motorMessage(kYearUs, 3));
    if (tenth == 7) recording_.add("/lidar", lidarMessage(kYearUs / 2));
    if (tenth == 9) recording_.add("/lidar", lidarMessage(-kYearUs));
    if (tenth > 0) recording_.add("/lidar", lidarMessage(100'000 * (tenth - 1) + 50'000));
  }
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(outputs(), SizeIs(21));
  // The two foreign scans: one lies before all motor records, one between the last and the foreign
  // one.
  EXPECT_THAT(log_.lines(), SizeIs(11));
  EXPECT_THAT(log_.lines(), Each(HasSubstr("motor index out of range")));
  fs::remove(path("lidar_points/1668464000.000000.pcd"));
  fs::remove(path("lidar_points/1715768000.000000.pcd"));
  ASSERT_THAT(outputs(), SizeIs(19));
  EXPECT_LT(worstError(), kToleranceM);
}

TEST_F(DataExporterCorrectedLidar, WrongTimeOfAMotorMessageDoesNotEndTheReading) {
  for (int tenth = 0; tenth < 20; ++tenth) recording_.add("/lidar", lidarMessage(100'000 * tenth));
  for (int tenth = 0; tenth < 21; ++tenth) {
    recording_.add("/lidar_to_platform", motorMessage(100'000 * tenth, 101));
    if (tenth == 5) recording_.add("/lidar_to_platform", motorMessage(86'400'000'000, 1));
  }
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(outputs(), SizeIs(20));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_LT(worstError(), kToleranceM);
}

TEST_F(DataExporterCorrectedLidar, WrongTimeOfASinglePointCostsThatPointAlone) {
  pb::LidarPointMsgArray scan = lidarMessage(150'000);
  scan.mutable_msgs(0)->mutable_points(4)->set_time_offset(2'000'000'000);
  for (int tenth = 0; tenth < 5; ++tenth) {
    recording_.add("/lidar_to_platform", motorMessage(100'000 * tenth, 100));
  }
  recording_.add("/lidar", scan).add("/lidar", lidarMessage(250'000));
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(log_.lines(), SizeIs(1));
  const std::vector<Row> rows = rowsOf(output("lidar_points/1700000000.150000.pcd"));
  ASSERT_THAT(rows, SizeIs(11));
  EXPECT_EQ(rows[4].x, 10.0) << "the point keeps its lidar coordinates";
  fs::remove(path("lidar_points/1700000000.150000.pcd"));
  EXPECT_LT(worstError(), kToleranceM);
}

TEST_F(DataExporterCorrectedLidar, ClockThatStepsBackIsFollowed) {
  constexpr std::int64_t kStepUs = 3'600'000'000;
  for (const std::int64_t clock : {kStepUs, std::int64_t{0}}) {
    for (int tenth = 0; tenth < 30; ++tenth) {
      recording_.add("/lidar_to_platform", motorMessage(clock + 100'000 * tenth, 100));
      // The lidar rests before the step, so that the motor is ahead of it.
      const bool rests = clock == kStepUs && tenth > 10;
      if (tenth > 0 && !rests)
        recording_.add("/lidar", lidarMessage(clock + 100'000 * (tenth - 1) + 50'000));
    }
  }
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(outputs(), SizeIs(39));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_LT(worstError(), kToleranceM);
}

TEST_F(DataExporterCorrectedLidar, MotorRecordsOfAnotherTimeCostAWarningPerPoint) {
  for (const std::int64_t foreign : {-86'400'000'000, 86'400'000'000}) {
    test::RecordingBuilder recording;
    recording.add("/lidar_to_platform", motorMessage(foreign, 100));
    recording.add("/lidar", lidarMessage(0));
    EXPECT_TRUE(exportCorrectedOf(recording.write(dir_ / (foreign < 0 ? "a.kbag" : "b.kbag"))));
    EXPECT_THAT(log_.lines(), SizeIs(11));
    EXPECT_THAT(
        log_.lines(),
        Each("<W>TIME [PointsTransformer::CorrectLidarAndTransformToImuFrame,L0] motor index "
             "out of range(1>=1)!"));
    for (const Row& row : rowsOf(output("lidar_points/1700000000.000000.pcd")))
      EXPECT_EQ(row.x, 10.0);
  }
}

TEST_F(DataExporterCorrectedLidar, TooFewMotorRecordsSparePointsOfTheirOwnTimeOnly) {
  recording_.add("/lidar_to_platform", motorMessage(0, 1));
  recording_.add("/lidar", lidarMessage(0));
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(log_.lines(), SizeIs(10));
}

TEST_F(DataExporterCorrectedLidar, WithoutMotorRecordsNothingIsWritten) {
  recording_.addTopic("/lidar_to_platform");
  recording_.addPayload("/lidar_to_platform", "\xFF no message", 1, kStartUs, kStartUs);
  recording_.add("/lidar", lidarMessage(0)).add("/lidar", lidarMessage(100'000));
  EXPECT_TRUE(exportCorrected());
  const std::string noMotors =
      "<E>TIME [PointsTransformer::CorrectLidarAndTransformToImuFrame,L0] Motor messages are "
      "empty, cannot perform motor compensation!";
  EXPECT_THAT(log_.lines(),
              ElementsAre("<E>TIME [DataExporter::exportCorrectedLidarData,L0] message of "
                          "topic[/lidar_to_platform] at offset(4252) cannot be decoded!",
                          noMotors, noMotors));
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(DataExporterCorrectedLidar, EmptyCloudIsNotWritten) {
  recording_.add("/lidar_to_platform", motorMessage(0, 100));
  recording_.add("/lidar", fromText<pb::LidarPointMsgArray>(
                               "msgs { header { timestamp: 1700000000050000 } }"));
  recording_.add("/lidar", lidarMessage(-20'000));
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(log_.errors(),
              ElementsAre("<E>TIME [PointsTransformer::CorrectLidarAndTransformToImuFrame,"
                          "L0] cloud is empty!"));
  EXPECT_THAT(outputs(), SizeIs(1));
}

TEST_F(DataExporterCorrectedLidar, SingularTransformIsRefusedBeforeAnythingIsWritten) {
  addRecording();
  SensorParameters params;
  params.motor.transform.setZero();
  int calls = 0;
  EXPECT_FALSE(exportCorrected([&](unsigned long) { return ++calls > 0; }, params));
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(outputs(), IsEmpty());
  EXPECT_THAT(log_.errors(), SizeIs(1));
}

TEST_F(DataExporterCorrectedLidar, WithoutWorkersNothingIsReadOrWritten) {
  addRecording();
  static_cast<void>(view("/lidar"));
  int calls = 0;
  {
    const test::NoMoreThreads limit;
    EXPECT_FALSE(exportCorrected([&](unsigned long) { return ++calls > 0; }));
  }
  EXPECT_EQ(log_.lines().back(),
            "<E>TIME [DataExporter::exportCorrectedLidarData,L0] task queue init(10) error!");
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(DataExporterCorrectedLidar, FileIsThatOfAnUncorrectedCloudButForItsCoordinates) {
  // The motor stands half a turn about z; the lidar sits 0.5 m above it, the motor 1 m before the
  // IMU. All of it is exact in binary.
  recording_.add("/lidar_to_platform", fromText<pb::OdometryMsgArray>(R"(
      msgs { header { timestamp: 1700000000000000 } qz: 1 }
      msgs { header { timestamp: 1700000000200000 } qz: 1 })"));
  recording_.add("/lidar", fromText<pb::LidarPointMsgArray>(R"(
      msgs { header { timestamp: 1700000000050000 scale: 8 seq: 1 }
             points { x: 12 y: -20 z: 2 intensity: 300 ring: 65537 time_offset: -500 }
             points { x: 0 y: 8 z: -8 intensity: 7 ring: 31 time_offset: 99999 } })"));
  SensorParameters params;
  params.motor.given = true;
  params.motor.transform(2, 3) = -0.5F;
  params.imuMotor.transform(0, 3) = -1.0F;
  EXPECT_TRUE(exportCorrected({}, params));
  EXPECT_THAT(outputs(), ElementsAre("lidar_points/1700000000.050000.pcd"));
  EXPECT_EQ(
      output("lidar_points/1700000000.050000.pcd"),
      makePcdHeader(2) +
          "-0.500000 2.500000 0.750000 0.000000 0.000000 0.000000 44.000000 1700000000.049500 1\n"
          "1.000000 -1.000000 -0.500000 0.000000 0.000000 0.000000 7.000000 1700000000.149999 "
          "31\n");
}

TEST_F(DataExporterCorrectedLidar, EmptyViewsAreNoFailure) {
  recording_.addTopic("/lidar").addTopic("/lidar_to_platform");
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(DataExporterCorrectedLidar, ProgressEndsAtTheTopicsTotal) {
  addRecording();
  std::vector<unsigned long> totals;
  EXPECT_TRUE(exportCorrected([&](unsigned long total) {
    totals.push_back(total);
    return true;
  }));
  const unsigned long size = lidarMessage(0).ByteSizeLong();
  ASSERT_THAT(totals, SizeIs(9));
  EXPECT_EQ(totals[0], size);
  EXPECT_EQ(totals.back(), 9 * size);
  EXPECT_TRUE(std::ranges::is_sorted(totals));
}

TEST_F(DataExporterCorrectedLidar, StopsWhenToldAndLeavesWholeFilesOnly) {
  addRecording(3);
  int calls = 0;
  EXPECT_TRUE(exportCorrected([&](unsigned long) { return ++calls < 4; }));
  EXPECT_EQ(calls, 4);
  EXPECT_LE(outputs().size(), 4U);
  for (const std::string& name : outputs()) EXPECT_THAT(rowsOf(output(name)), SizeIs(11));
}

TEST_F(DataExporterCorrectedLidar, FilesThatCannotBeWrittenHaveTheirLines) {
  addRecording();
  makeDirectory("lidar_points/1700000000.050000.pcd");
  static_cast<void>(view("/lidar"));
  FailingFileCalls calls;
  calls.onlyFilesThatEndIn("1700000000.250000.pcd");
  calls.fillDiskAfter(10);
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(log_.lines(),
              testing::UnorderedElementsAre(
                  warning(kOperation,
                          "create file(" + path("lidar_points/1700000000.050000.pcd") + ") error!"),
                  "<E>TIME [DataExporter::exportCorrectedLidarData,L0] save pcd error: " +
                      path("lidar_points/1700000000.250000.pcd") + "(No space left on device)!"));
  EXPECT_THAT(outputs(), SizeIs(7));
}

TEST_F(DataExporterCorrectedLidar, LaterOfTwoFramesOfOneTimeRemains) {
  for (int tenth = 0; tenth < 3; ++tenth) {
    recording_.add("/lidar_to_platform", motorMessage(100'000 * tenth, 100));
  }
  for (int i = 1; i <= 30; ++i) {
    pb::LidarPointMsgArray scan = lidarMessage(50'000);
    scan.mutable_msgs(0)->mutable_points()->DeleteSubrange(0, i % 10);
    recording_.add("/lidar", scan);
  }
  EXPECT_TRUE(exportCorrected());
  EXPECT_THAT(rowsOf(output("lidar_points/1700000000.050000.pcd")), SizeIs(11));
  EXPECT_THAT(outputs(), SizeIs(1));
}

TEST_F(DataExporterCorrectedLidar, ReadsEveryMessageOfAnOrderedRecordingOnce) {
  addRecording(5);
  const MorvaBag::View lidar = view("/lidar");
  const MorvaBag::View motor = view("/lidar_to_platform");
  FailingFileCalls calls;
  calls.onlyFilesThatEndIn(".kbag");
  MorvaBag counted;
  ASSERT_EQ(counted.open(dir_ / "recording.kbag", MorvaBag::BagMode::kRead), 0);
  const int before = calls.count(Call::kPread);
  EXPECT_TRUE(DataExporter(&counted, out_, {}).exportCorrectedLidarData({}, lidar, motor));
  // A read from the file brings at least one of these messages whole.
  EXPECT_LE(calls.count(Call::kPread) - before,
            static_cast<int>(lidar.indexes.size() + motor.indexes.size()));
}

}  // namespace morva
