#include "kit/simulate/simulate.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "kit/picture_reader.h"
#include "kit/recording.h"
#include "platform/file.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

using morva::BagInfo;
using morva::CompressionType;
using morva::MorvaBag;
using morva::MsgIndex;
using morva::TopicInfo;
using morva::sim::Options;
using morva::sim::simulate;
using morva::sim::TopicSummary;
using morva::test::LogCapture;
using morva::test::readFile;
using morva::test::Recording;
using morva::test::smallOptions;
using morva::test::TempDir;
using morva::test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace pb = protix::kbag_msgs;

namespace {

constexpr std::int64_t kStartUs = 1'700'000'000'000'000;

std::map<std::string, std::vector<std::string>> allPayloads(const Recording& recording) {
  std::map<std::string, std::vector<std::string>> payloads;
  for (const TopicInfo& topic : recording.bag().getInfo().topics) {
    payloads[topic.name] = recording.payloads(topic.name);
  }
  return payloads;
}

// Times of a topic's samples, from the start of the recording.
template <typename Array>
std::vector<std::int64_t> timesOf(const Array& array) {
  std::vector<std::int64_t> times;
  for (const auto& sample : array.msgs()) times.push_back(sample.header().timestamp() - kStartUs);
  return times;
}

template <typename Array>
void expectNumberedSamples(const Array& array) {
  for (int i = 0; i < array.msgs_size(); ++i) {
    ASSERT_EQ(array.msgs(i).header().seq(), static_cast<std::uint32_t>(i));
  }
}

// first, first + period, ..., last
std::vector<std::int64_t> every(std::int64_t period, std::int64_t first, std::int64_t last) {
  std::vector<std::int64_t> times;
  for (std::int64_t time = first; time <= last; time += period) times.push_back(time);
  return times;
}

// Length and content of a file, or that there is none.
std::string stateOf(const std::string& path) {
  return osmik::File::exists(path) ? readFile(path) : "<none>";
}

}  // namespace

TEST(SimulateBag, PassesEveryCheckInEveryCompression) {
  for (const CompressionType type :
       {CompressionType::kNone, CompressionType::kLz4, CompressionType::kZstd}) {
    Options options = smallOptions();
    options.seconds = 0.3;
    options.compression = type;
    options.cameras = 1;
    const Recording recording(options);
    const LogCapture log;
    EXPECT_EQ(MorvaBag::checkAll(recording.options().bagPath), 0);
    EXPECT_EQ(recording.bag().compressionType, type);
    EXPECT_THAT(log.errors(), IsEmpty());
  }
}

TEST(SimulateBag, CompressesSamplesAndLeavesPicturesAsTheyAre) {
  Options options = smallOptions();
  options.seconds = 0.3;
  options.cameras = 1;
  const Recording recording(options);
  for (const MsgIndex& index : recording.bag().getView("/lidar", 0, -1).indexes) {
    EXPECT_LT(index.storedSize, index.rawSize);
  }
  for (const MsgIndex& index : recording.bag().getView("/camera_left/h264", 0, -1).indexes) {
    EXPECT_EQ(index.storedSize, index.rawSize);
  }
}

TEST(SimulateBag, HoldsEveryTopicWithTheCountsOfItsSummary) {
  Options options = smallOptions();
  options.seconds = 0.3;
  options.cameras = 2;
  const Recording recording(options);
  const BagInfo info = recording.bag().getInfo();
  EXPECT_EQ(info.topicCount, 13U);
  std::map<std::string, TopicInfo> topics;
  for (const TopicInfo& topic : info.topics) topics[topic.name] = topic;
  ASSERT_THAT(recording.summaries(), SizeIs(13));
  for (const TopicSummary& summary : recording.summaries()) {
    ASSERT_TRUE(topics.contains(summary.topic)) << summary.topic;
    EXPECT_EQ(topics[summary.topic].messageCount, summary.samples) << summary.topic;
    EXPECT_EQ(topics[summary.topic].total, summary.bytes) << summary.topic;
    EXPECT_THAT(recording.payloads(summary.topic), SizeIs(summary.messages)) << summary.topic;
  }
  const auto truth = nlohmann::json::parse(readFile(recording.options().truthPath));
  EXPECT_EQ(truth.at("topics").at("/imu").at("samples"), 61);
  EXPECT_EQ(truth.at("topics").at("/imu").at("bytes"), topics["/imu"].total);
}

TEST(SimulateBag, IsWrittenInTheOrderOfTime) {
  Options options = smallOptions();
  options.seconds = 0.3;
  options.cameras = 1;
  const Recording recording(options);
  std::int64_t last = 0;
  std::set<std::string> topics;
  for (const MsgIndex& index : MorvaBag::getAllView(recording.options().bagPath, nullptr).indexes) {
    EXPECT_GE(index.writeTime, last);
    EXPECT_LE(index.headerTimes[0], index.headerTimes[1]);
    EXPECT_LE(index.headerTimes[1], index.writeTime);
    last = index.writeTime;
    topics.insert(index.topicName.data());
  }
  EXPECT_EQ(topics.size(), 12U);
}

TEST(SimulateBag, CarriesItsDeviceRecord) {
  const Recording recording(smallOptions());
  std::string text;
  const morva::DeviceInfo device = recording.bag().getDeviceInfo(&text);
  EXPECT_EQ(device.deviceName, "Simulated scanner");
  EXPECT_EQ(device.serialNumber, "SIM0000000001");
  EXPECT_THAT(device.sensors, ElementsAre("lidar", "motor", "imu", "magnetometer", "gnss"));
}

TEST(SimulateBag, SameSeedGivesTheSameMessages) {
  Options options = smallOptions();
  options.seconds = 0.3;
  options.cameras = 2;
  options.rangeNoiseM = 0.01;
  const Recording first(options);
  const Recording second(options);
  EXPECT_EQ(allPayloads(first), allPayloads(second));
  EXPECT_EQ(readFile(first.options().truthPath), readFile(second.options().truthPath));
}

TEST(SimulateBag, AnotherSeedGivesOtherMessagesOnEveryTopic) {
  Options options = smallOptions();
  options.seconds = 0.3;
  options.cameras = 1;
  const Recording first(options);
  options.seed = 2;
  const Recording second(options);
  for (const TopicInfo& topic : first.bag().getInfo().topics) {
    EXPECT_NE(first.payloads(topic.name), second.payloads(topic.name)) << topic.name;
  }
}

TEST(SimulateBag, CamerasDoNotChangeTheOtherSensors) {
  Options options = smallOptions();
  options.rangeNoiseM = 0.01;
  const Recording without(options);
  options.cameras = 1;
  const Recording with(options);
  for (const char* topic : {"/lidar", "/imu", "/gnss_data", "/magnetic", "/raw_ppk_log"}) {
    EXPECT_EQ(without.payloads(topic), with.payloads(topic)) << topic;
  }
}

TEST(SimulateRates, EverySensorSamplesAtItsOwn) {
  Options options = smallOptions();
  options.seconds = 1.25;
  const Recording recording(options);
  const auto imu = recording.read<pb::ImuMsgArray>("/imu");
  EXPECT_EQ(timesOf(imu), every(5'000, 0, 1'250'000));
  expectNumberedSamples(imu);
  const auto magnetic = recording.read<pb::MagneticMsgArray>("/magnetic");
  EXPECT_EQ(timesOf(magnetic), every(20'000, 0, 1'240'000));
  expectNumberedSamples(magnetic);
  const auto motor = recording.read<pb::OdometryMsgArray>("/lidar_to_platform");
  EXPECT_EQ(timesOf(motor), every(1'000, -20'000, 1'270'000));
  expectNumberedSamples(motor);
  const auto gnss = recording.read<pb::GnssMsgArray>("/gnss_data");
  EXPECT_EQ(timesOf(gnss), every(200'000, 0, 1'200'000));
  expectNumberedSamples(gnss);
  const auto lidar = recording.read<pb::LidarPointMsgArray>("/lidar");
  EXPECT_EQ(timesOf(lidar), every(100'000, 0, 1'100'000));  // whole frames alone
  expectNumberedSamples(lidar);
}

TEST(SimulateRates, MessagesCarryBatchesOfSamples) {
  const Recording recording(smallOptions());
  const auto indexes = recording.bag().getView("/lidar_to_platform", 0, -1).indexes;
  ASSERT_THAT(indexes, SizeIs(11));
  EXPECT_EQ(indexes[0].count, 100U);
  EXPECT_EQ(indexes[0].headerTimes[0], kStartUs - 20'000);
  EXPECT_EQ(indexes[0].headerTimes[1], kStartUs + 79'000);
  EXPECT_EQ(indexes[10].count, 41U);
}

TEST(SimulateCameras, TopicsAreTakenInAFixedOrder) {
  Options options = smallOptions();
  options.seconds = 0.1;
  options.cameras = 7;
  const Recording recording(options);
  std::vector<std::string> topics;
  for (const TopicSummary& summary : recording.summaries()) {
    if (summary.topic.starts_with("/camera")) topics.push_back(summary.topic);
  }
  EXPECT_THAT(topics, ElementsAre("/camera_left/h264", "/camera_right/h264", "/camera_center/h264",
                                  "/camera_left_main/h264", "/camera_right_main/h264",
                                  "/camera_left_seco/h264", "/camera_right_seco/h264",
                                  "/camera_center/jpeg"));
}

TEST(SimulateCameras, EveryPayloadDecodesByItself) {
  Options options = smallOptions();
  options.seconds = 0.3;
  options.cameras = 2;
  const Recording recording(options);
  std::set<std::int64_t> times;
  for (const char* topic : {"/camera_left/h264", "/camera_right/h264", "/camera_center/jpeg"}) {
    const auto images = recording.read<pb::ImageMsgArray>(topic);
    ASSERT_EQ(images.msgs_size(), 3) << topic;
    for (const pb::ImageMsg& image : images.msgs()) {
      const bool isJpeg = image.image_type() == 1;
      const auto picture =
          isJpeg ? morva::test::decodeJpeg(image.data()) : morva::test::decodeH264(image.data());
      ASSERT_TRUE(picture.has_value()) << topic << " " << image.header().seq();
      EXPECT_EQ(picture->width, static_cast<int>(image.width()));
      EXPECT_EQ(picture->height, static_cast<int>(image.height()));
      EXPECT_EQ(morva::test::stampedNumber(*picture), image.header().seq());
      times.insert(image.header().timestamp());
    }
  }
  EXPECT_THAT(times, SizeIs(9)) << "two cameras share a time";
}

TEST(SimulateFiles, ProjectFilesAreTextBinaryAndEmpty) {
  const Recording recording(smallOptions());
  const auto files = recording.files("/project_data");
  ASSERT_THAT(files, SizeIs(5));
  EXPECT_EQ(nlohmann::json::parse(files.at("project.json")).at("name"), "simulated room");
  EXPECT_THAT(files.at("cache/mask.bin"), SizeIs(2500));
  EXPECT_EQ(files.at("cache/empty.txt"), "");
}

// A small recording and its truth.
Options optionsIn(const TempDir& directory) {
  Options options = smallOptions();
  options.bagPath = directory / "a.kbag";
  options.truthPath = directory / "a.json";
  return options;
}

TEST(SimulateFailure, ExistingBagIsLeftAloneAndNoTruthIsLeft) {
  const TempDir directory;
  const Options options = optionsIn(directory);
  writeFile(options.bagPath, "mine");
  const LogCapture log;
  std::vector<TopicSummary> topics;
  EXPECT_FALSE(simulate(options, {}, &topics));
  EXPECT_THAT(log.errors(),
              ElementsAre("<E>TIME [MorvaBag::open,L0] bag file exist: " + options.bagPath + "!"));
  EXPECT_EQ(stateOf(options.bagPath), "mine");
  EXPECT_EQ(stateOf(options.truthPath), "<none>");
}

TEST(SimulateFailure, ExistingTruthIsLeftAloneAndNoBagIsLeft) {
  const TempDir directory;
  const Options options = optionsIn(directory);
  writeFile(options.truthPath, "mine");
  const LogCapture log;
  std::vector<TopicSummary> topics;
  EXPECT_FALSE(simulate(options, {}, &topics));
  EXPECT_THAT(log.errors(), ElementsAre("<E>TIME [simulate,L0] create truth file(" +
                                        options.truthPath + ") error: File exists!"));
  EXPECT_EQ(stateOf(options.truthPath), "mine");
  EXPECT_EQ(stateOf(options.bagPath), "<none>");
}

TEST(SimulateFailure, MissingDirectoryIsReported) {
  const TempDir directory;
  Options options = smallOptions();
  options.bagPath = directory / "nowhere/a.kbag";
  const LogCapture log;
  std::vector<TopicSummary> topics;
  EXPECT_FALSE(simulate(options, {}, &topics));
  EXPECT_THAT(log.errors(), SizeIs(1));
}

TEST(SimulateFailure, StoppedRecordingIsRemoved) {
  const TempDir directory;
  const Options options = optionsIn(directory);
  std::vector<double> parts;
  std::vector<TopicSummary> topics;
  EXPECT_FALSE(simulate(
      options,
      [&](double part) {
        parts.push_back(part);
        EXPECT_TRUE(osmik::File::exists(options.bagPath));
        return parts.size() < 60;
      },
      &topics));
  EXPECT_THAT(parts, SizeIs(60));
  EXPECT_TRUE(std::is_sorted(parts.begin(), parts.end()));
  EXPECT_GT(parts.back(), 0.1);
  EXPECT_EQ(stateOf(options.bagPath), "<none>");
  EXPECT_EQ(stateOf(options.truthPath), "<none>");
}

TEST(SimulateFailure, FullDiskIsReportedAndLeavesNothing) {
  using morva::test::FailingFileCalls;
  // In the middle of the messages, and with room for everything but the index or the truth.
  Options options = smallOptions();
  const Recording whole(options);
  const auto bagBytes = static_cast<std::int64_t>(readFile(whole.options().bagPath).size());
  for (const std::int64_t room : {std::int64_t{0}, bagBytes / 2, bagBytes - 100, bagBytes + 100}) {
    const TempDir directory;
    options.bagPath = directory / "a.kbag";
    options.truthPath = directory / "a.json";
    const LogCapture log;
    std::vector<TopicSummary> topics;
    {
      FailingFileCalls disk;
      disk.fillDiskAfter(room);
      EXPECT_FALSE(simulate(options, {}, &topics)) << room;
    }
    EXPECT_FALSE(log.errors().empty()) << room;
    EXPECT_EQ(stateOf(options.bagPath), "<none>") << room;
    EXPECT_EQ(stateOf(options.truthPath), "<none>") << room;
  }
}
