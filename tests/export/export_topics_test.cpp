#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "export/export_fixture.h"
#include "morva/export.h"

namespace morva {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Gt;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const std::string kSample("\x0A\x02\x0A\x00", 4);  // one message with an empty header

}  // namespace

class ExportTopics : public test::ExportTest {
 protected:
  /// Two messages for each topic.
  void record(const std::vector<std::string>& topics) {
    for (const std::string& topic : topics) {
      recording_.addPayload(topic, kSample, 1, 1'000'000, 1'000'000);
      recording_.addPayload(topic, kSample, 1, 5'000'000, 5'000'000);
    }
  }
};

TEST_F(ExportTopics, WithoutAListEveryTopicThatHasAnOutputIsExported) {
  record({"/imu", "/unheard_of", "/raw_gnss_log"});
  const ExportResult result = exportTopics(&bag(), out_);
  EXPECT_EQ(result.code, kExportOk);
  EXPECT_THAT(result.failedTopics, IsEmpty());
  EXPECT_THAT(outputs(), ElementsAre("csv/imu.csv", "raw_gnss_log.txt"));
  EXPECT_THAT(output("csv/imu.csv"), testing::HasSubstr("\n0,0,"));
}

TEST_F(ExportTopics, UnpackedLayoutMakesItsOwnFilesInAFolderThatIsMade) {
  record({"/imu", "/lidar_to_platform"});
  out_ += "/deep/below";
  const ExportResult result = exportTopics(&bag(), out_, {.layout = ExportLayout::kUnpacked});
  EXPECT_EQ(result.code, kExportOk);
  EXPECT_THAT(outputs(), ElementsAre("imu.csv", "motor.csv"));
}

TEST_F(ExportTopics, PicturesAreWrittenOnlyWhereAskedFor) {
  record({"/camera_left/h264"});
  EXPECT_EQ(exportTopics(&bag(), out_).code, kExportOk);
  EXPECT_THAT(outputs(), ElementsAre("csv/camera_left_h264.csv"));
  EXPECT_EQ(exportTopics(&bag(), out_, {.pictures = true}).code, kExportOk);
  EXPECT_THAT(outputs(), Contains("h264/camera_left.h264"));
}

TEST_F(ExportTopics, ATopicWithoutOutputFailsAndTheOthersAreExported) {
  record({"/unheard_of", "/imu"});
  const ExportResult result = exportTopics(&bag(), out_, {.topics = {"/unheard_of", "/imu"}});
  EXPECT_EQ(result.code, kExportIncomplete);
  EXPECT_THAT(result.failedTopics, ElementsAre("/unheard_of"));
  EXPECT_THAT(outputs(), ElementsAre("csv/imu.csv"));
}

TEST_F(ExportTopics, FoldersOfManyFilesAreEmptiedAndOtherFilesStay) {
  record({"/imu"});
  makeDirectory("csv");
  test::writeFile(path("csv/old.csv"), "old");
  test::writeFile(path("notes.txt"), "mine");
  EXPECT_EQ(exportTopics(&bag(), out_).code, kExportOk);
  EXPECT_THAT(outputs(), ElementsAre("csv/imu.csv", "notes.txt"));
}

TEST_F(ExportTopics, OnlyMessagesOfTheGivenTimeAreExported) {
  record({"/imu"});
  const auto rows = [this](std::int64_t startUs, std::int64_t durationS) {
    EXPECT_EQ(exportTopics(&bag(), out_, {.startUs = startUs, .durationS = durationS}).code,
              kExportOk);
    const std::string table = output("csv/imu.csv");
    return std::count(table.begin(), table.end(), '\n') - 1;
  };
  EXPECT_EQ(rows(0, 0), 2);
  EXPECT_EQ(rows(2'000'000, 0), 1);
  EXPECT_EQ(rows(2'000'000, 1), 0);
}

TEST_F(ExportTopics, ABagThatIsNotOpenIsRefusedAndNothingIsTouched) {
  makeDirectory("csv");
  test::writeFile(path("csv/old.csv"), "old");
  MorvaBag closed;
  EXPECT_EQ(exportTopics(&closed, out_).code, kExportNotOpen);
  EXPECT_THAT(outputs(), ElementsAre("csv/old.csv"));
}

TEST_F(ExportTopics, AFolderThatCannotBeMadeIsTold) {
  record({"/imu"});
  test::writeFile(path("file"), "in the way");
  EXPECT_EQ(exportTopics(&bag(), path("file")).code, kExportNoFolder);
  EXPECT_EQ(exportTopics(&bag(), "").code, kExportNoFolder);
  test::writeFile(path("csv"), "in the way");
  EXPECT_EQ(exportTopics(&bag(), out_).code, kExportNoFolder);
}

TEST_F(ExportTopics, ProgressGrowsToTheTotalAlsoWhereTopicsFail) {
  record({"/camera_left/h264", "/imu", "/unheard_of", "/lidar"});
  for (const int threads : {1, 4}) {
    std::vector<ExportProgress> told;
    ExportOptions options{.topics = {"/camera_left/h264", "/imu", "/unheard_of", "/lidar"}};
    options.pictures = true;
    options.threads = threads;
    options.progress = [&](const ExportProgress& progress) {
      told.push_back(progress);
      return true;
    };
    EXPECT_EQ(exportTopics(&bag(), out_, options).code, kExportIncomplete);
    ASSERT_THAT(told, SizeIs(Gt(4)));
    // Two messages of four bytes for each topic; the camera's are read twice.
    EXPECT_EQ(told.back().totalBytes, 5 * 8);
    EXPECT_EQ(told.back().doneBytes, told.back().totalBytes);
    for (std::size_t i = 1; i < told.size(); ++i) {
      EXPECT_GE(told[i].doneBytes, told[i - 1].doneBytes);
    }
  }
}

TEST_F(ExportTopics, AStopEndsTheExportAndIsNoFailureOfATopic) {
  record({"/camera_left/h264", "/imu"});
  for (const int threads : {1, 3}) {
    int calls = 0;
    ExportOptions options{.pictures = true, .threads = threads};
    options.progress = [&](const ExportProgress& /*progress*/) {
      ++calls;
      return false;
    };
    const ExportResult result = exportTopics(&bag(), out_, options);
    EXPECT_EQ(result.code, kExportStopped);
    EXPECT_THAT(result.failedTopics, IsEmpty());
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(outputs(), Not(Contains("h264/camera_left.h264")));
  }
}

TEST_F(ExportTopics, AnyNumberOfWorkersGivesTheSameFiles) {
  record({"/imu", "/magnetic", "/gnss_data", "/lidar", "/hesai/pandar", "/raw_gnss_log"});
  const auto exported = [this](int threads) {
    EXPECT_EQ(exportTopics(&bag(), out_, {.threads = threads}).code, kExportOk);
    std::vector<std::string> contents;
    for (const std::string& name : outputs()) contents.push_back(name + ":" + output(name));
    return contents;
  };
  const std::vector<std::string> one = exported(1);
  EXPECT_THAT(one, SizeIs(5));  // both lidar topics have one file
  EXPECT_EQ(exported(2), one);
  EXPECT_EQ(exported(16), one);
  EXPECT_EQ(exported(0), one);
}

TEST_F(ExportTopics, ExportFileNamesTheFileOfATopic) {
  EXPECT_EQ(exportFile(ExportLayout::kTables, "/imu"), "csv/imu.csv");
  EXPECT_EQ(exportFile(ExportLayout::kUnpacked, "/imu"), "imu.csv");
  EXPECT_EQ(exportFile(ExportLayout::kUnpacked, "/lidar"), "lidar_points/.gitkeep");
  EXPECT_EQ(exportFile(ExportLayout::kTables, "/unheard_of"), "");
}

}  // namespace morva
