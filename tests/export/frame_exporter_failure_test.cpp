// The frame exporter on a full disk, a failing device and from several threads.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "export/export_fixture.h"
#include "export/frame_exporter.h"
#include "support/failing_file_calls.h"
#include "support/message_text.h"

namespace morva {
namespace {

namespace pb = protix::kbag_msgs;
using test::FailingFileCalls;
using Call = FailingFileCalls::Call;
using test::fromText;
using testing::ElementsAre;
using testing::IsEmpty;

using Handler = bool (FrameExporter::*)(osmik::File*, const MorvaBag::View&);

/// A handler that ends its topic at the first row it cannot write.
struct Table {
  const char* topic;
  const char* operation;
  const char* errorText;
  Handler handler;
};

constexpr std::array kTables = {
    Table{"/imu", "makeImuCsv", "write imu frame error", &FrameExporter::makeImuCsv},
    Table{"/magnetic", "makeMagneticCsv", "write magnetic frame error",
          &FrameExporter::makeMagneticCsv},
    Table{"/lidar", "makeLidarCsv", "write lidar frame error", &FrameExporter::makeLidarCsv},
    Table{"/lidar_to_platform", "makeEncoderCsv", "write encode frame error",
          &FrameExporter::makeEncoderCsv},
    Table{"/gnss_data", "makeGnssDataCsv", "write gnss frame error",
          &FrameExporter::makeGnssDataCsv},
    Table{"/camera_left/h264", "makeCameraImageCsv", "write image frame error",
          &FrameExporter::makeCameraImageCsv},
};

class FrameExporterFailure : public test::ExportTest {
 protected:
  FrameExporterFailure() {
    for (const char* const name : {"csv", "config", "project_data", "h264", "jpeg/camera_left"}) {
      makeDirectory(name);
    }
    // Fields 1.3 are the sequence number in every kind of array: three samples, 1 to 3.
    const std::string samples(
        "\x0A\x04\x0A\x02\x18\x01\x0A\x04\x0A\x02\x18\x02\x0A\x04\x0A\x02\x18\x03", 18);
    for (const Table& table : kTables) recording_.addPayload(table.topic, samples, 3);
    recording_.add(
        "/raw_gnss_log",
        fromText<pb::LogMsgArray>("msgs { data: 'one' } msgs { data: 'two' } msgs { data: '3' }"));
    recording_.add("/camera_left/jpeg", fromText<pb::ImageMsgArray>(R"(
        msgs { header { timestamp: 5 seq: 1 } data: "first" }
        msgs { header { timestamp: 6 seq: 2 } data: "second" })"));
    recording_.add("/camera_right/h264", fromText<pb::ImageMsgArray>(R"(
        msgs { header { timestamp: 5 seq: 1 } data: "first" }
        msgs { header { timestamp: 6 seq: 2 } data: "second" })"));
    for (const char* const topic : {"/config_file", "/project_data"}) {
      recording_.add(topic,
                     fromText<pb::FileMsgArray>(
                         "msgs { name: 'a' plain: 'first' } msgs { name: 'b' plain: 'second' }"));
    }
  }

  static std::string line(const char* level, const std::string& operation,
                          const std::string& text) {
    return "<" + std::string(level) + ">TIME [FrameExporter::" + operation + ",L0] " + text;
  }

  /// Runs one handler on an unbuffered file, so that each row is a write of its own.
  [[nodiscard]] bool runUnbuffered(Handler handler, const std::string& topic, int failingWrite) {
    const MorvaBag::View messages = view(topic);
    osmik::File file;
    EXPECT_TRUE(file.open(path("output"), osmik::OpenMode::kWrite));
    log_.clear();
    FailingFileCalls calls;
    calls.fail(Call::kPwrite, failingWrite, 1, ENOSPC);
    FrameExporter exporter(&bag(), out_);
    return (exporter.*handler)(&file, messages);
  }

  [[nodiscard]] bool exportFrame(const std::string& topic, const MorvaBag::View& messages) {
    log_.clear();
    return FrameExporter(&bag(), out_).exportFrame(topic, messages);
  }
  [[nodiscard]] bool exportImage(const std::string& topic, const MorvaBag::View& messages,
                                 const std::string& type) {
    log_.clear();
    return FrameExporter(&bag(), out_).exportImage(topic, messages, type);
  }
};

TEST_F(FrameExporterFailure, RowThatCannotBeWrittenEndsTheTopic) {
  for (const Table& table : kTables) {
    SCOPED_TRACE(table.operation);
    EXPECT_FALSE(runUnbuffered(table.handler, table.topic, 3));  // header, row 1, row 2
    EXPECT_THAT(log_.lines(),
                ElementsAre(line("E", table.operation, table.errorText + std::string(": -1!"))));
    const std::string written = output("output");
    EXPECT_EQ(std::ranges::count(written, '\n'), 2);
    EXPECT_EQ(written.find("\n2,"), std::string::npos);
  }
}

TEST_F(FrameExporterFailure, RowWrittenInPartEndsTheTopicWithTheCount) {
  const MorvaBag::View messages = view("/lidar_to_platform");
  FailingFileCalls calls;
  osmik::File file;
  ASSERT_TRUE(file.open(path("output"), osmik::OpenMode::kWrite));
  calls.limitFileBytes(
      static_cast<std::int64_t>(std::string("seq,collect_timestamp,angle\n").size()) + 4);
  FrameExporter exporter(&bag(), out_);
  log_.clear();
  EXPECT_FALSE(exporter.makeEncoderCsv(&file, messages));
  EXPECT_THAT(log_.lines(),
              ElementsAre(line("E", "makeEncoderCsv", "write encode frame error: 4!")));
  EXPECT_EQ(output("output"), "seq,collect_timestamp,angle\n1,0,");
}

TEST_F(FrameExporterFailure, HeaderThatCannotBeWrittenGivesFalseWithoutALine) {
  for (const Table& table : kTables) {
    SCOPED_TRACE(table.operation);
    EXPECT_FALSE(runUnbuffered(table.handler, table.topic, 1));
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_EQ(output("output"), "");
  }
}

TEST_F(FrameExporterFailure, FullDiskAtTheEndFailsTheTable) {
  bag();
  for (const Table& table : kTables) {
    SCOPED_TRACE(table.operation);
    const MorvaBag::View messages = view(table.topic);
    FailingFileCalls calls;
    calls.limitFileBytes(10);
    EXPECT_FALSE(exportFrame(table.topic, messages));
    EXPECT_THAT(log_.lines(),
                ElementsAre(line("E", table.operation, table.errorText + std::string(": -1!"))));
    // What was written is left in place.
    EXPECT_EQ(output(FrameExporter::frameFile(table.topic)), "seq,collec");
  }
}

TEST_F(FrameExporterFailure, FailedCloseFailsTheTable) {
  bag();
  for (const Table& table : kTables) {
    SCOPED_TRACE(table.operation);
    const MorvaBag::View messages = view(table.topic);
    FailingFileCalls calls;
    calls.fail(Call::kClose, 1, 1, EIO);
    EXPECT_FALSE(exportFrame(table.topic, messages));
    EXPECT_THAT(log_.lines(),
                ElementsAre(line("E", table.operation, table.errorText + std::string(": -1!"))));
  }
}

TEST_F(FrameExporterFailure, FullDiskFailsEvenATableWithoutRows) {
  FailingFileCalls calls;
  calls.limitFileBytes(0);
  MorvaBag closed;
  EXPECT_FALSE(FrameExporter(&closed, out_).exportFrame("/imu", {}));
  EXPECT_THAT(log_.lines(), ElementsAre(line("E", "makeImuCsv", "write imu frame error: -1!")));
}

TEST_F(FrameExporterFailure, FileThatCannotBeCreatedIsAnError) {
  const MorvaBag::View messages = view("/imu");
  FailingFileCalls calls;
  calls.fail(Call::kOpen, 1, 1, EACCES);
  EXPECT_FALSE(exportFrame("/imu", messages));
  EXPECT_THAT(log_.lines(), ElementsAre(line("E", "exportFrame",
                                             "create file(" + path("csv/imu.csv") + ") error!")));
}

TEST_F(FrameExporterFailure, RawDataGoesOnAfterAFailedWrite) {
  EXPECT_TRUE(runUnbuffered(&FrameExporter::makeRawDataLog, "/raw_gnss_log", 2));
  EXPECT_THAT(log_.lines(), ElementsAre(line("W", "makeRawDataLog", "write raw data error: -1!")));
  EXPECT_EQ(output("output"), "one3");
}

TEST_F(FrameExporterFailure, FullDiskAtTheEndFailsTheRawLog) {
  const MorvaBag::View messages = view("/raw_gnss_log");
  FailingFileCalls calls;
  calls.limitFileBytes(4);
  EXPECT_FALSE(exportFrame("/raw_gnss_log", messages));
  EXPECT_THAT(log_.lines(), ElementsAre(line("W", "makeRawDataLog", "write raw data error: -1!")));
  EXPECT_EQ(output("raw_gnss_log.txt"), "onet");
}

TEST_F(FrameExporterFailure, StreamGoesOnAfterAFailedWrite) {
  EXPECT_TRUE(runUnbuffered(&FrameExporter::makeH264Files, "/camera_right/h264", 1));
  EXPECT_THAT(log_.lines(),
              ElementsAre(line("W", "makeH264Files", "write h264 data(1 : 5) error: -1!")));
  EXPECT_EQ(output("output"), "second");
}

TEST_F(FrameExporterFailure, StreamPayloadWrittenInPartIsWarnedAbout) {
  const MorvaBag::View messages = view("/camera_right/h264");
  FailingFileCalls calls;
  osmik::File file;
  ASSERT_TRUE(file.open(path("output"), osmik::OpenMode::kWrite));
  calls.limitFileBytes(3);
  FrameExporter exporter(&bag(), out_);
  log_.clear();
  EXPECT_TRUE(exporter.makeH264Files(&file, messages));
  EXPECT_THAT(log_.lines(),
              ElementsAre(line("W", "makeH264Files", "write h264 data(1 : 5) error: 3!"),
                          line("W", "makeH264Files", "write h264 data(2 : 6) error: -1!")));
}

TEST_F(FrameExporterFailure, FullDiskAtTheEndFailsTheStream) {
  const MorvaBag::View messages = view("/camera_right/h264");
  FailingFileCalls calls;
  calls.limitFileBytes(8);
  EXPECT_FALSE(exportImage("/camera_right/h264", messages, "h264"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(line("W", "makeH264Files", "write h264 data(2 : 6) error: -1!")));
  EXPECT_EQ(output("h264/camera_right.h264"), "firstsec");
}

TEST_F(FrameExporterFailure, JpegWrittenInPartIsWarnedAbout) {
  const MorvaBag::View messages = view("/camera_left/jpeg");
  FailingFileCalls calls;
  calls.limitFileBytes(5);
  EXPECT_TRUE(exportImage("/camera_left/jpeg", messages, "jpeg"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(line("W", "makeJpegFiles", "write jpeg data(2 : 6) error: 5!")));
  EXPECT_EQ(output("jpeg/camera_left/5.jpeg"), "first");
}

TEST_F(FrameExporterFailure, JpegLostAtItsCloseIsWarnedAbout) {
  const MorvaBag::View messages = view("/camera_left/jpeg");
  FailingFileCalls calls;
  calls.fail(Call::kClose, 1, 1, EIO);
  EXPECT_TRUE(exportImage("/camera_left/jpeg", messages, "jpeg"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(line("W", "makeJpegFiles", "write jpeg data(1 : 5) error: -1!")));
}

TEST_F(FrameExporterFailure, CarriedFileWrittenInPartIsWarnedAbout) {
  for (const auto& [topic, operation] : {std::pair{"/config_file", "makeConfigFiles"},
                                         std::pair{"/project_data", "makeProjectData"}}) {
    const MorvaBag::View messages = view(topic);
    FailingFileCalls calls;
    calls.limitFileBytes(5);
    EXPECT_TRUE(exportFrame(topic, messages));
    EXPECT_THAT(log_.lines(), ElementsAre(line("W", operation, "write file content error: 5!")));
  }
  EXPECT_EQ(output("config/a"), "first");
}

TEST_F(FrameExporterFailure, CarriedFileLostAtItsCloseIsWarnedAbout) {
  const MorvaBag::View messages = view("/config_file");
  FailingFileCalls calls;
  calls.fail(Call::kClose, 2, 1, EIO);
  EXPECT_TRUE(exportFrame("/config_file", messages));
  EXPECT_THAT(log_.lines(),
              ElementsAre(line("W", "makeConfigFiles", "write file content error: -1!")));
}

TEST_F(FrameExporterFailure, FailedCloseOfThePlaceholderFailsTheTopic) {
  const MorvaBag::View configs = view("/config_file");
  const MorvaBag::View pictures = view("/camera_left/jpeg");
  {
    FailingFileCalls calls;
    calls.fail(Call::kClose, 3, 1, EIO);  // after the two carried files
    EXPECT_FALSE(exportFrame("/config_file", configs));
  }
  EXPECT_THAT(log_.lines(),
              ElementsAre(line("W", "makeConfigFiles", "write file content error: -1!")));
  FailingFileCalls calls;
  calls.fail(Call::kClose, 3, 1, EIO);
  EXPECT_FALSE(exportImage("/camera_left/jpeg", pictures, "jpeg"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(line("W", "makeJpegFiles", "write jpeg data(2 : 6) error: -1!")));
}

/// Sees how much each write hands to the system.
class RecordingFileCalls final : public osmik::FileCalls {
 public:
  RecordingFileCalls() { replace(this); }
  RecordingFileCalls(const RecordingFileCalls&) = delete;
  RecordingFileCalls& operator=(const RecordingFileCalls&) = delete;
  ~RecordingFileCalls() override { replace(nullptr); }

  ssize_t pwrite(int fd, const void* data, std::size_t size, off_t offset) override {
    sizes.push_back(size);
    return FileCalls::pwrite(fd, data, size, offset);
  }

  std::vector<std::size_t> sizes;
};

TEST_F(FrameExporterFailure, GathersSixteenMebibytesForEachWrite) {
  pb::LogMsgArray array;
  // Small pieces: a large one is not gathered.
  array.add_msgs()->set_data(std::string(16 << 10, 'x'));
  for (int i = 0; i < 20 * 64; ++i) recording_.add("/raw_ppk_log", array);
  const MorvaBag::View messages = view("/raw_ppk_log");
  const RecordingFileCalls calls;
  EXPECT_TRUE(exportFrame("/raw_ppk_log", messages));
  EXPECT_THAT(calls.sizes, ElementsAre(16 << 20, 4 << 20));
}

TEST_F(FrameExporterFailure, TopicsExportAtTheSameTime) {
  FrameExporter exporter(&bag(), out_);
  std::vector<MorvaBag::View> views;
  for (const Table& table : kTables) views.push_back(view(table.topic));
  std::array<bool, kTables.size()> results{};
  {
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < kTables.size(); ++i) {
      threads.emplace_back([&, i] {
        for (int run = 0; run < 20; ++run) {
          results.at(i) = exporter.exportFrame(kTables.at(i).topic, views.at(i));
        }
      });
    }
  }
  EXPECT_THAT(results, testing::Each(true));
  EXPECT_EQ(output("csv/encoder.csv"),
            "seq,collect_timestamp,angle\n1,0,0.000000\n2,0,0.000000\n3,0,0.000000\n");
}

}  // namespace
}  // namespace morva
