// What the frame exporter writes as it was recorded: logs, streams, pictures and carried files.

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "export/export_fixture.h"
#include "export/frame_exporter.h"
#include "support/message_text.h"

namespace morva {
namespace {

namespace fs = std::filesystem;
namespace pb = protix::kbag_msgs;
using test::fromText;
using testing::ElementsAre;
using testing::IsEmpty;

class FrameExporterFiles : public test::ExportTest {
 protected:
  FrameExporterFiles() {
    for (const char* const name : {"csv", "config", "project_data", "h264", "jpeg/camera_left"}) {
      makeDirectory(name);
    }
  }

  [[nodiscard]] bool exportFrame(const std::string& topic) {
    const MorvaBag::View messages = view(topic);
    log_.clear();
    return FrameExporter(&bag(), out_).exportFrame(topic, messages);
  }
  [[nodiscard]] bool exportImage(const std::string& topic, const std::string& type) {
    const MorvaBag::View messages = view(topic);
    log_.clear();
    return FrameExporter(&bag(), out_).exportImage(topic, messages, type);
  }

  void addFile(const std::string& topic, const std::string& name, const std::string& content) {
    pb::FileMsgArray array;
    array.add_msgs()->set_name(name);
    array.mutable_msgs(0)->set_plain(content);
    recording_.add(topic, array);
  }

  void addPicture(const std::string& topic, std::uint32_t seq, std::int64_t timestampUs,
                  const std::string& data) {
    pb::ImageMsgArray array;
    array.add_msgs()->mutable_header()->set_seq(seq);
    array.mutable_msgs(0)->mutable_header()->set_timestamp(timestampUs);
    array.mutable_msgs(0)->set_data(data);
    // With header times of its own: a view selects none of before 1970.
    recording_.addPayload(topic, array.SerializeAsString());
  }
};

TEST_F(FrameExporterFiles, UnknownTopicGivesFalseAndNothingElse) {
  recording_.addTopic("/nope");
  for (const char* const topic : {"/nope", "", "imu", "/imu/", "/IMU"}) {
    EXPECT_FALSE(FrameExporter(&bag(), out_).exportFrame(topic, {}));
    EXPECT_FALSE(FrameExporter(&bag(), out_).exportImage(topic, {}, "h264"));
  }
  EXPECT_FALSE(FrameExporter(&bag(), out_).exportImage("/imu", {}, "h264"));
  EXPECT_THAT(linesOf("FrameExporter"), IsEmpty());
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(FrameExporterFiles, FileNamesAreKnownBeforehand) {
  EXPECT_EQ(FrameExporter::frameFile("/livox/lidar"), "csv/lidar.csv");
  EXPECT_EQ(FrameExporter::frameFile("/config_file"), "config/.gitkeep");
  EXPECT_EQ(FrameExporter::frameFile("/nope"), "");
  EXPECT_EQ(FrameExporter::imageFile("/camera_left_seco/jpeg"), "jpeg/camera_left_seco/.gitkeep");
  EXPECT_EQ(FrameExporter::imageFile("/camera_right_main/h264"), "h264/camera_right_main.h264");
  EXPECT_EQ(FrameExporter::imageFile("/imu"), "");
}

TEST_F(FrameExporterFiles, ImageDirectoriesAreThoseOfAllPictures) {
  EXPECT_THAT(FrameExporter::imageDirectories(),
              testing::UnorderedElementsAre("h264", "jpeg/camera_left", "jpeg/camera_center",
                                            "jpeg/camera_right", "jpeg/camera_left_main",
                                            "jpeg/camera_left_seco", "jpeg/camera_right_main",
                                            "jpeg/camera_right_seco"));
}

TEST_F(FrameExporterFiles, MissingDirectoryIsACreateError) {
  recording_.addTopic("/imu");
  FrameExporter exporter(&bag(), path("absent"));
  log_.clear();
  EXPECT_FALSE(exporter.exportFrame("/imu", {}));
  EXPECT_FALSE(exporter.exportImage("/camera_left/h264", {}, "h264"));
  EXPECT_THAT(log_.lines(), ElementsAre("<E>TIME [FrameExporter::exportFrame,L0] create file(" +
                                            path("absent/csv/imu.csv") + ") error!",
                                        "<E>TIME [FrameExporter::exportImage,L0] create file(" +
                                            path("absent/h264/camera_left.h264") + ") error!"));
}

TEST_F(FrameExporterFiles, RawLogsConcatenateTheirPayloads) {
  struct Log {
    const char* topic;
    const char* file;
  };
  static constexpr Log kLogs[] = {{"/raw_gnss_log", "raw_gnss_log.txt"},
                                  {"/raw_ntrip_log", "raw_ntrip_log.data"},
                                  {"/raw_ppk_log", "raw_ppk_log.data"}};
  for (const Log& log : kLogs) {
    recording_.add(log.topic, fromText<pb::LogMsgArray>(R"(
        msgs { data: "$GNGGA,1*00\r\n" } msgs { } msgs { data: "\000\377" })"));
    recording_.addPayload(log.topic, "unreadable", 0);
    recording_.add(log.topic, fromText<pb::LogMsgArray>("msgs { data: 'end' }"));
  }
  for (const Log& log : kLogs) {
    EXPECT_TRUE(exportFrame(log.topic));
    EXPECT_EQ(output(log.file), std::string("$GNGGA,1*00\r\n\0\xFF"
                                            "end",
                                            18));
  }
  EXPECT_THAT(linesOf("FrameExporter"), IsEmpty());
}

TEST_F(FrameExporterFiles, EmptyRawLogGivesAnEmptyFile) {
  recording_.addTopic("/raw_gnss_log");
  EXPECT_TRUE(exportFrame("/raw_gnss_log"));
  EXPECT_EQ(output("raw_gnss_log.txt"), "");
}

TEST_F(FrameExporterFiles, OutputReplacesWhatHasItsName) {
  test::writeFile(path("raw_gnss_log.txt"), "a longer text from an earlier run");
  recording_.add("/raw_gnss_log", fromText<pb::LogMsgArray>("msgs { data: 'new' }"));
  EXPECT_TRUE(exportFrame("/raw_gnss_log"));
  EXPECT_EQ(output("raw_gnss_log.txt"), "new");
}

TEST_F(FrameExporterFiles, PlantedLinksAreReplacedNotFollowed) {
  test::writeFile(dir_ / "precious", "untouched");
  for (const char* const name : {"raw_gnss_log.txt", "config/a.yaml", "h264/camera_left.h264",
                                 "jpeg/camera_left/5.jpeg", "jpeg/camera_left/.gitkeep"}) {
    fs::create_symlink(dir_ / "precious", path(name));
  }
  recording_.add("/raw_gnss_log", fromText<pb::LogMsgArray>("msgs { data: 'log' }"));
  addFile("/config_file", "a.yaml", "yaml");
  addPicture("/camera_left/h264", 1, 5, "stream");
  addPicture("/camera_left/jpeg", 1, 5, "picture");
  EXPECT_TRUE(exportFrame("/raw_gnss_log"));
  EXPECT_TRUE(exportFrame("/config_file"));
  EXPECT_TRUE(exportImage("/camera_left/h264", "h264"));
  EXPECT_TRUE(exportImage("/camera_left/jpeg", "jpeg"));

  EXPECT_EQ(test::readFile(dir_ / "precious"), "untouched");
  EXPECT_EQ(output("raw_gnss_log.txt"), "log");
  EXPECT_EQ(output("config/a.yaml"), "yaml");
  EXPECT_EQ(output("h264/camera_left.h264"), "stream");
  EXPECT_EQ(output("jpeg/camera_left/5.jpeg"), "picture");
  EXPECT_FALSE(fs::is_symlink(path("config/a.yaml")));
}

TEST_F(FrameExporterFiles, CarriedFilesLandUnderTheirLastComponent) {
  addFile("/config_file", "a/b/extrinsic.yaml", "first");
  addFile("/config_file", "plain.yaml", std::string("\0\xFF", 2));
  pb::FileMsgArray scrambled;
  scrambled.add_msgs()->set_name("scrambled.bin");
  scrambled.mutable_msgs(0)->set_scrambled("as it is");
  scrambled.add_msgs()->set_name("empty");
  recording_.add("/config_file", scrambled);
  addFile("/project_data", "/deep/project.json", "{}");
  EXPECT_TRUE(exportFrame("/config_file"));
  EXPECT_TRUE(exportFrame("/project_data"));
  EXPECT_THAT(outputs(), ElementsAre("config/.gitkeep", "config/empty", "config/extrinsic.yaml",
                                     "config/plain.yaml", "config/scrambled.bin",
                                     "project_data/.gitkeep", "project_data/project.json"));
  EXPECT_EQ(output("config/.gitkeep"), "");
  EXPECT_EQ(output("config/empty"), "");
  EXPECT_EQ(output("config/extrinsic.yaml"), "first");
  EXPECT_EQ(output("config/plain.yaml"), std::string("\0\xFF", 2));
  EXPECT_EQ(output("config/scrambled.bin"), "as it is");
  EXPECT_EQ(output("project_data/project.json"), "{}");
}

TEST_F(FrameExporterFiles, TopicWithoutCarriedFilesLeavesThePlaceholder) {
  recording_.addTopic("/config_file");
  EXPECT_TRUE(exportFrame("/config_file"));
  EXPECT_THAT(outputs(), ElementsAre("config/.gitkeep"));
}

TEST_F(FrameExporterFiles, LaterCarriedFileOfTheSameNameStays) {
  addFile("/config_file", "one/name", "a long first content");
  addFile("/config_file", "two/name", "second");
  EXPECT_TRUE(exportFrame("/config_file"));
  EXPECT_EQ(output("config/name"), "second");
}

TEST_F(FrameExporterFiles, CarriedPlaceholderNameIsAnOrdinaryFile) {
  addFile("/config_file", ".gitkeep", "content");
  EXPECT_TRUE(exportFrame("/config_file"));
  EXPECT_EQ(output("config/.gitkeep"), "content");
}

TEST_F(FrameExporterFiles, HostileNamesStayInsideTheDirectory) {
  for (const char* const name : {"../../escaped", "/etc/escaped", "..\\escaped", "~", "-rf", " ",
                                 "config/../../escaped", "line\nfeed"}) {
    addFile("/project_data", name, "x");
  }
  EXPECT_TRUE(exportFrame("/project_data"));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(outputs(),
              ElementsAre("project_data/ ", "project_data/-rf", "project_data/..\\escaped",
                          "project_data/.gitkeep", "project_data/escaped",
                          "project_data/line\nfeed", "project_data/~"));
  EXPECT_FALSE(fs::exists(dir_ / "escaped"));
  EXPECT_FALSE(fs::exists("/etc/escaped"));
}

TEST_F(FrameExporterFiles, NamesThatCannotBeFilesAreWarnedAbout) {
  const std::string longName(256, 'n');
  const std::string withNul("a\0b", 3);
  fs::create_directory(path("config/taken"));
  for (const std::string& name :
       {std::string(), std::string("."), std::string(".."), std::string("a/"), std::string("x/.."),
        std::string("taken"), longName, withNul}) {
    addFile("/config_file", name, "x");
  }
  addFile("/config_file", "good", "x");
  EXPECT_TRUE(exportFrame("/config_file"));
  const auto warning = [this](const std::string& name) {
    return "<W>TIME [FrameExporter::makeConfigFiles,L0] create file(" + path("config/" + name) +
           ") error!";
  };
  EXPECT_THAT(log_.lines(),
              ElementsAre(warning(""), warning("."), warning(".."), warning(""), warning(".."),
                          warning("taken"), warning(longName), warning(withNul)));
  EXPECT_THAT(outputs(), ElementsAre("config/.gitkeep", "config/good"));
  EXPECT_TRUE(fs::is_directory(path("config/taken")));
}

TEST_F(FrameExporterFiles, ProjectDataWarningsNameTheirOperation) {
  addFile("/project_data", "..", "x");
  EXPECT_TRUE(exportFrame("/project_data"));
  EXPECT_THAT(log_.lines(), ElementsAre("<W>TIME [FrameExporter::makeProjectData,L0] create file(" +
                                        path("project_data/..") + ") error!"));
}

TEST_F(FrameExporterFiles, H264StreamIsThePayloadsInOrder) {
  recording_.add("/camera_left/h264", fromText<pb::ImageMsgArray>(R"(
      msgs { data: "\000\000\000\001key" } msgs { data: "\000\000\001p1" })"));
  recording_.addPayload("/camera_left/h264", "unreadable", 0);
  addPicture("/camera_left/h264", 3, 5, "p2");
  EXPECT_TRUE(exportImage("/camera_left/h264", "h264"));
  EXPECT_EQ(output("h264/camera_left.h264"), std::string("\0\0\0\1key\0\0\1p1p2", 14));
  EXPECT_THAT(linesOf("FrameExporter"), IsEmpty());
}

TEST_F(FrameExporterFiles, EmptyH264PayloadIsWarnedAbout) {
  addPicture("/camera_left/h264", 4294967295U, -5, "");
  addPicture("/camera_left/h264", 2, 6, "data");
  EXPECT_TRUE(exportImage("/camera_left/h264", "h264"));
  EXPECT_EQ(output("h264/camera_left.h264"), "data");
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(
          "<W>TIME [FrameExporter::makeH264Files,L0] write h264 data(4294967295 : -5) error: 0!"));
}

TEST_F(FrameExporterFiles, ImageExportTruncatesAnExistingStream) {
  test::writeFile(path("h264/camera_left.h264"), "a longer stream from an earlier run");
  addPicture("/camera_left/h264", 1, 5, "new");
  EXPECT_TRUE(exportImage("/camera_left/h264", "h264"));
  EXPECT_EQ(output("h264/camera_left.h264"), "new");
}

TEST_F(FrameExporterFiles, EachJpegIsAFileNamedAfterItsTime) {
  addPicture("/camera_left/jpeg", 1, 1'700'000'000'000'001, std::string("\xFF\xD8\0", 3));
  addPicture("/camera_left/jpeg", 2, -7, "early");
  addPicture("/camera_left/jpeg", 3, 0, "");
  EXPECT_TRUE(exportImage("/camera_left/jpeg", "jpeg"));
  EXPECT_THAT(outputs(),
              ElementsAre("jpeg/camera_left/-7.jpeg", "jpeg/camera_left/.gitkeep",
                          "jpeg/camera_left/0.jpeg", "jpeg/camera_left/1700000000000001.jpeg"));
  EXPECT_EQ(output("jpeg/camera_left/1700000000000001.jpeg"), std::string("\xFF\xD8\0", 3));
  EXPECT_EQ(output("jpeg/camera_left/-7.jpeg"), "early");
  EXPECT_EQ(output("jpeg/camera_left/0.jpeg"), "");
  EXPECT_EQ(output("jpeg/camera_left/.gitkeep"), "");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FrameExporterFiles, JpegsOfOneTimeLeaveTheLastOne) {
  addPicture("/camera_left/jpeg", 1, 5, "the longer first picture");
  addPicture("/camera_left/jpeg", 2, 5, "second");
  EXPECT_TRUE(exportImage("/camera_left/jpeg", "jpeg"));
  EXPECT_THAT(outputs(), ElementsAre("jpeg/camera_left/.gitkeep", "jpeg/camera_left/5.jpeg"));
  EXPECT_EQ(output("jpeg/camera_left/5.jpeg"), "second");
}

TEST_F(FrameExporterFiles, JpegThatCannotBeCreatedIsWarnedAbout) {
  fs::create_directory(path("jpeg/camera_left/5.jpeg"));
  addPicture("/camera_left/jpeg", 1, 5, "x");
  addPicture("/camera_left/jpeg", 2, 6, "y");
  EXPECT_TRUE(exportImage("/camera_left/jpeg", "jpeg"));
  EXPECT_THAT(log_.lines(), ElementsAre("<W>TIME [FrameExporter::makeJpegFiles,L0] create file(" +
                                        path("jpeg/camera_left/5.jpeg") + ") error!"));
  EXPECT_EQ(output("jpeg/camera_left/6.jpeg"), "y");
}

TEST_F(FrameExporterFiles, InvalidImageTypeIsAnErrorAfterTheFileWasMade) {
  addPicture("/camera_left/h264", 1, 5, "x");
  for (const char* const type : {"png", "JPEG", "H264", "", "jpeg "}) {
    EXPECT_FALSE(exportImage("/camera_left/h264", type));
    EXPECT_THAT(log_.lines(),
                ElementsAre("<E>TIME [FrameExporter::exportImage,L0] invalid image type: " +
                            std::string(type) + "!"));
  }
  EXPECT_EQ(output("h264/camera_left.h264"), "");
}

TEST_F(FrameExporterFiles, TypeThatDoesNotSuitTheTopicIsNotRejected) {
  addPicture("/camera_left/h264", 1, 5, "x");
  EXPECT_TRUE(exportImage("/camera_left/h264", "jpeg"));
  EXPECT_THAT(outputs(), ElementsAre("h264/5.jpeg", "h264/camera_left.h264"));
  EXPECT_EQ(output("h264/camera_left.h264"), "");
}

TEST_F(FrameExporterFiles, EveryCameraHasItsImageOutputs) {
  for (const std::string camera :
       {"camera_left", "camera_center", "camera_right", "camera_left_main", "camera_left_seco",
        "camera_right_main", "camera_right_seco"}) {
    makeDirectory("jpeg/" + camera);
    recording_.addTopic("/" + camera + "/jpeg").addTopic("/" + camera + "/h264");
  }
  for (const std::string camera :
       {"camera_left", "camera_center", "camera_right", "camera_left_main", "camera_left_seco",
        "camera_right_main", "camera_right_seco"}) {
    EXPECT_TRUE(exportImage("/" + camera + "/jpeg", "jpeg"));
    EXPECT_TRUE(exportImage("/" + camera + "/h264", "h264"));
    EXPECT_EQ(output("jpeg/" + camera + "/.gitkeep"), "");
    EXPECT_EQ(output("h264/" + camera + ".h264"), "");
  }
  EXPECT_EQ(outputs().size(), 14U);
}

}  // namespace
}  // namespace morva
