// What every topic of the data exporter has in common: progress, stops, empty outputs, threads and
// the sizes of its writes.

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <string>
#include <thread>
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

namespace pb = protix::kbag_msgs;
using test::FailingFileCalls;
using test::fromText;
using testing::ElementsAre;
using testing::IsEmpty;

/// A topic for every operation, each with a file of its own.
constexpr std::array kTopics = {"/imu",          "/magnetic",     "/lidar_to_platform",
                                "/gnss_data",    "/lidar",        "/camera_left/h264",
                                "/config_file",  "/project_data", "/raw_gnss_log",
                                "/raw_ntrip_log"};

}  // namespace

class DataExporterTopics : public test::ExportTest {
 protected:
  DataExporterTopics() {
    for (const char* const folder :
         {"lidar_points", "images/camera_0", "calib/config", "project_data"}) {
      makeDirectory(folder);
    }
  }

  /// Four messages for each topic, of which the second cannot be read and the third not be decoded.
  void addMessages() {
    for (const char* const topic : kTopics) {
      const std::string oneSample("\x0A\x02\x0A\x00", 4);
      recording_.addPayload(topic, oneSample);
      recording_.addPayload(topic, "unread", 0);
      recording_.addPayload(topic, "\xFF\xFF\xFF");
      recording_.addPayload(topic, oneSample);
    }
  }

  bool unpack(const std::string& topic, const DataExporter::Progress& progress) {
    const MorvaBag::View messages = view(topic);
    return DataExporter(&bag(), out_, progress).exportData(topic, messages);
  }
};

TEST_F(DataExporterTopics, ProgressIsToldOnceAMessageAndEndsAtTheSum) {
  addMessages();
  for (const char* const topic : kTopics) {
    if (std::string(topic) == "/camera_left/h264") continue;  // ends at its first message
    std::vector<unsigned long> totals;
    EXPECT_TRUE(unpack(topic, [&](unsigned long total) {
      totals.push_back(total);
      return true;
    }));
    EXPECT_THAT(totals, ElementsAre(4, 10, 13, 17)) << topic;
  }
}

TEST_F(DataExporterTopics, StopAtAnyMessageIsNoFailure) {
  addMessages();
  for (const char* const topic : kTopics) {
    if (std::string(topic) == "/camera_left/h264") continue;
    for (int last = 1; last <= 4; ++last) {
      int calls = 0;
      EXPECT_TRUE(unpack(topic, [&](unsigned long) { return ++calls < last; })) << topic;
      EXPECT_EQ(calls, last) << topic;
    }
  }
}

TEST_F(DataExporterTopics, EmptyViewGivesAHeaderOrAnEmptyFileAndNoProgress) {
  for (const char* const topic : kTopics) recording_.addTopic(topic);
  for (const char* const topic : kTopics) {
    EXPECT_TRUE(unpack(topic, [&](unsigned long) {
      ADD_FAILURE() << topic;
      return true;
    }));
    const std::string file = output(DataExporter::dataFile(topic));
    if (DataExporter::dataFile(topic).ends_with(".csv")) {
      EXPECT_EQ(std::ranges::count(file, '\n'), 1) << topic;
    } else {
      EXPECT_EQ(file, "") << topic;
    }
  }
  EXPECT_EQ(outputs().size(), kTopics.size());
  EXPECT_THAT(linesOf("DataExporter"), IsEmpty());
}

TEST_F(DataExporterTopics, OneExporterServesAThreadForEachTopic) {
  constexpr int kMessages = 60;
  for (int i = 0; i < kMessages; ++i) {
    const std::string header = "header { timestamp: " + std::to_string(1'000'000 + i) + " }";
    const std::string sample = "msgs { " + header + " }";
    recording_.add("/imu", fromText<pb::ImuMsgArray>(sample));
    recording_.add("/magnetic", fromText<pb::MagneticMsgArray>(sample));
    recording_.add("/lidar_to_platform", fromText<pb::OdometryMsgArray>(sample));
    recording_.add("/gnss_data", fromText<pb::GnssMsgArray>(sample));
    recording_.add("/lidar", fromText<pb::LidarPointMsgArray>("msgs { " + header +
                                                              " points { x: 1 } points { } }"));
    recording_.add("/config_file",
                   fromText<pb::FileMsgArray>("msgs { name: 'c" + std::to_string(i) + "' }"));
    recording_.add("/raw_gnss_log", fromText<pb::LogMsgArray>("msgs { data: 'a line\\n' }"));
    recording_.add("/raw_ntrip_log", fromText<pb::LogMsgArray>("msgs { data: 'binary' }"));
  }
  const std::vector<std::string> topics = {"/imu",          "/magnetic",     "/lidar_to_platform",
                                           "/gnss_data",    "/lidar",        "/config_file",
                                           "/raw_gnss_log", "/raw_ntrip_log"};
  std::mutex mutex;
  std::map<std::thread::id, std::vector<unsigned long>> totals;
  DataExporter exporter(&bag(), out_, [&](unsigned long total) {
    const std::lock_guard lock(mutex);
    totals[std::this_thread::get_id()].push_back(total);
    return true;
  });
  std::map<std::string, std::thread::id> threadOf;
  std::vector<std::thread> threads;
  log_.clear();
  for (const std::string& topic : topics) {
    threads.emplace_back(
        [&, messages = view(topic)] { EXPECT_TRUE(exporter.exportData(topic, messages)); });
    threadOf[topic] = threads.back().get_id();
  }
  for (std::thread& thread : threads) thread.join();

  const auto info = bag().getInfo();
  for (const std::string& topic : topics) {
    const std::vector<unsigned long>& told = totals[threadOf[topic]];
    ASSERT_EQ(told.size(), kMessages) << topic;
    EXPECT_TRUE(std::ranges::is_sorted(told)) << topic;
    const auto row = std::ranges::find(info.topics, topic, &MorvaBag::TopicInfo::name);
    EXPECT_EQ(told.back(), row->total) << topic;
  }
  EXPECT_EQ(std::ranges::count(output("imu.csv"), '\n'), kMessages + 1);
  EXPECT_EQ(std::ranges::count(output("raw_gnss_log.txt"), '\n'), kMessages);
  // A cloud and a carried file for each message, the tables and logs, and two placeholders.
  EXPECT_EQ(outputs().size(), 2U * kMessages + 6 + 2);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DataExporterTopics, WritesAreAsLargeAsTheirBuffers) {
  constexpr std::size_t kMib = 1 << 20;
  constexpr std::size_t kPieceBytes = 32UL * 1024;  // large pieces pass the buffer by
  using Call = FailingFileCalls::Call;
  // 17 MiB through a buffer of 16 are two writes, and a table of 5 MiB through one of 4.
  pb::LogMsgArray log;
  for (std::size_t bytes = 0; bytes < kMib; bytes += kPieceBytes) {
    log.add_msgs()->set_data(std::string(kPieceBytes, 'x'));
  }
  for (int i = 0; i < 17; ++i) recording_.add("/raw_gnss_log", log);
  pb::ImuMsgArray samples;
  for (int i = 0; i < 75'000; ++i) samples.add_msgs()->mutable_header()->set_timestamp(i);
  recording_.add("/imu", samples);
  const MorvaBag::View logs = view("/raw_gnss_log");
  const MorvaBag::View imu = view("/imu");
  DataExporter exporter(&bag(), out_, {});

  FailingFileCalls calls;
  calls.onlyFilesThatEndIn(".txt");
  EXPECT_TRUE(exporter.exportData("/raw_gnss_log", logs));
  EXPECT_EQ(output("raw_gnss_log.txt").size(), 17 * kMib);
  EXPECT_EQ(calls.count(Call::kPwrite), 2);

  calls.onlyFilesThatEndIn("imu.csv");
  EXPECT_TRUE(exporter.exportData("/imu", imu));
  EXPECT_EQ(calls.count(Call::kPwrite), 2 + 1);
  EXPECT_TRUE(exporter.exportCorrectedImuData({}, imu));
  EXPECT_GT(output("imu.csv").size(), 4 * kMib);
  EXPECT_LT(output("imu.csv").size(), 8 * kMib);
  EXPECT_EQ(calls.count(Call::kPwrite), 2 + 1 + 2);
}

}  // namespace morva
