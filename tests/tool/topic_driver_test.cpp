#include "tool/topic_driver.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <latch>
#include <map>
#include <mutex>
#include <pthread.h>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "morva/bag.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/no_more_threads.h"
#include "support/temp_dir.h"
#include "tool/commands.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

constexpr std::chrono::seconds kLongEnough(20);

/// A bag of two messages for each topic.
std::string makeBag(const std::string& path, const Names& topics) {
  MorvaBag bag;
  bag.topics = topics;
  EXPECT_EQ(bag.open(path, BagMode::kWrite), MorvaBag::kOpenOk);
  for (const std::string& topic : topics) {
    for (const std::int64_t timeUs : {1'700'000'000'000'000, 1'700'000'001'000'000}) {
      const std::string header = MorvaBag::makeMessageHeader(false, 1, timeUs, timeUs);
      EXPECT_TRUE(bag.writeMessage(topic, timeUs, header, "payload"));
    }
  }
  EXPECT_TRUE(bag.close());
  return path;
}

/// What a run printed, without colours.
class Printed {
 public:
  template <typename Run>
  explicit Printed(Run run) {
    testing::internal::CaptureStdout();
    run();
    const std::string output = testing::internal::GetCapturedStdout();
    text_ = std::regex_replace(output, std::regex("\033\\[\\d+m"), "");
  }
  [[nodiscard]] const std::string& text() const { return text_; }
  [[nodiscard]] bool has(const std::string& part) const {
    return text_.find(part) != std::string::npos;
  }

 private:
  std::string text_;
};

;

class RunOnTopics : public testing::Test {
 protected:
  /// A command that calls `exportTopic` with the topic alone; every topic has an output of its own.
  TopicCommand commandOf(std::function<bool(const std::string& topic)> exportTopic) {
    return {.function = "kbag_export_frame_mt",
            .noun = "frame",
            .dirPrefix = "/export-",
            .subDirs = {"/one", "/two/deep"},
            .outputOf = [](const std::string& topic) { return topic; },
            .exportTopic = [exportTopic = std::move(exportTopic)](
                               MorvaBag*, const std::string&, const std::string& topic, const View&,
                               Crew*) { return exportTopic(topic); }};
  }
  TopicRequest requestOf(const Names& topics, int threads) {
    return {.bagPath = bag_, .topics = topics, .outDir = dir_.path(), .threads = threads};
  }

  TempDir dir_;
  std::string bag_ = makeBag(dir_ / "rec.kbag", {"/a", "/b", "/c"});
  LogCapture log_;
};

}  // namespace

TEST_F(RunOnTopics, OneWorkerTakesTopicsInListOrder) {
  Names seen;
  const Printed printed([&] {
    runOnTopics(commandOf([&](const std::string& topic) {
                  seen.push_back(topic);
                  return topic != "/b";
                }),
                requestOf({"/c", "/a", "/b"}, 1));
  });
  EXPECT_EQ(seen, (Names{"/c", "/a", "/b"}));
  const std::regex expected(
      "kbag export frame start tasks: 1\\.\n"
      "export frame start, topic: /c, index total: 2\\.\n"
      "export frame finished, topic: /c\n"
      "export frame start, topic: /a, index total: 2\\.\n"
      "export frame finished, topic: /a\n"
      "export frame start, topic: /b, index total: 2\\.\n"
      "export topic\\[/b\\] error!\n"
      "export frame finished, topic: /b\n"
      "kbag export frame success, duration: \\d+\\.\\d{6} Secs\\.\n");
  EXPECT_TRUE(std::regex_match(printed.text(), expected)) << printed.text();
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(RunOnTopics, ExporterGetsAnOpenBagTheDirectoryAndTheWholeView) {
  TopicCommand command = commandOf(nullptr);
  std::atomic<int> checked = 0;
  command.exportTopic = [&](MorvaBag* bag, const std::string& outDir, const std::string& topic,
                            const View& view, Crew*) {
    EXPECT_EQ(outDir, dir_.path());
    EXPECT_EQ(topic, "/a");
    EXPECT_EQ(view.indexes.size(), 2U);
    std::string payload;
    EXPECT_TRUE(bag->readMessage(view.indexes[1], &payload));
    EXPECT_EQ(payload, "payload");
    ++checked;
    return true;
  };
  const Printed printed([&] { runOnTopics(command, requestOf({"/a"}, 1)); });
  EXPECT_EQ(checked, 1);
}

TEST_F(RunOnTopics, TopicsOfOneOutputRunOneAfterAnotherInListOrder) {
  Names topics;
  for (int i = 0; i < 60; ++i) topics.push_back("/a" + std::to_string(i));
  std::mutex mutex;
  std::map<std::string, Names> seen;  // by output
  std::set<std::string> busy;
  bool together = false;

  TopicCommand command = commandOf([&](const std::string& topic) {
    const std::string output = topic.substr(topic.size() - 1);
    {
      const std::lock_guard lock(mutex);
      together = together || !busy.insert(output).second;
      seen[output].push_back(topic);
    }
    std::this_thread::yield();
    const std::lock_guard lock(mutex);
    busy.erase(output);
    return true;
  });
  command.outputOf = [](const std::string& topic) { return topic.substr(topic.size() - 1); };
  const Printed printed([&] { runOnTopics(command, requestOf(topics, 8)); });

  EXPECT_FALSE(together);
  ASSERT_EQ(seen.size(), 10U);
  for (int digit = 0; digit < 10; ++digit) {
    Names expected;
    for (int i = digit; i < 60; i += 10) expected.push_back("/a" + std::to_string(i));
    EXPECT_EQ(seen[std::to_string(digit)], expected);
  }
}

TEST_F(RunOnTopics, TopicsOfDifferentOutputsRunTogether) {
  std::mutex mutex;
  std::condition_variable arrival;
  int arrived = 0;
  std::atomic<int> met = 0;
  const Printed printed([&] {
    runOnTopics(commandOf([&](const std::string&) {
                  std::unique_lock lock(mutex);
                  ++arrived;
                  arrival.notify_all();
                  if (arrival.wait_for(lock, kLongEnough, [&] { return arrived == 3; })) ++met;
                  return true;
                }),
                requestOf({"/a", "/b", "/c"}, 0));
  });
  EXPECT_EQ(met, 3);
  EXPECT_TRUE(printed.has("start tasks: 3."));
}

TEST_F(RunOnTopics, WorkerWithoutATopicHelpsTheOthers) {
  for (const Names& topics : {Names{"/a"}, Names{"/a", "/b"}}) {
    std::latch meeting(2);
    TopicCommand command = commandOf({});
    // The second topic waits for the first one, whose two pieces wait for each other.
    command.outputOf = [](const std::string&) { return "shared"; };
    command.exportTopic = [&](MorvaBag*, const std::string&, const std::string& topic, const View&,
                              Crew* crew) {
      if (crew == nullptr || topic != "/a") return true;  // no second processor
      return forEachInOrder(
          crew, 2,
          [&](std::size_t) {
            meeting.arrive_and_wait();
            return 0;
          },
          [](std::size_t, int) { return true; });
    };
    const Printed printed([&] { runOnTopics(command, requestOf(topics, 2)); });
    EXPECT_TRUE(printed.has("success"));
    EXPECT_FALSE(printed.has("error"));
  }
}

TEST_F(RunOnTopics, OneWorkerHasNoHelp) {
  bool hadHelp = true;
  TopicCommand command = commandOf({});
  command.exportTopic = [&](MorvaBag*, const std::string&, const std::string&, const View&,
                            Crew* crew) {
    hadHelp = crew != nullptr;
    return true;
  };
  const Printed printed([&] { runOnTopics(command, requestOf({"/a"}, 1)); });
  EXPECT_FALSE(hadHelp);
}

TEST_F(RunOnTopics, NegativeThreadsMeanOneForEachTopic) {
  const Printed printed([&] {
    runOnTopics(commandOf([](const std::string&) { return true; }), requestOf({"/a", "/b"}, -7));
  });
  EXPECT_TRUE(printed.has("start tasks: 2."));
}

TEST_F(RunOnTopics, ThreadsAboveTheTopicsArePrintedAsGiven) {
  const Printed printed([&] {
    runOnTopics(commandOf([](const std::string&) { return true; }), requestOf({"/a"}, 1000000));
  });
  EXPECT_TRUE(printed.has("start tasks: 1000000."));
}

TEST_F(RunOnTopics, ExceptionOfOneTopicLeavesTheOthersOfItsOutputAlone) {
  std::atomic<int> done = 0;
  TopicCommand command = commandOf([&](const std::string& topic) {
    if (topic == "/a") throw std::runtime_error("broken");
    ++done;
    return true;
  });
  command.outputOf = [](const std::string&) { return "shared"; };
  const Printed printed([&] { runOnTopics(command, requestOf({"/a", "/b", "/c"}, 3)); });
  EXPECT_EQ(done, 2);
  EXPECT_EQ(log_.errors(),
            Names{"<E>TIME [AsyncTaskQueue::run,L0] task of queue() threw: broken!"});
}

TEST_F(RunOnTopics, BagThatCannotBeOpenedFailsEachTaskAndIsCalledASuccess) {
  TopicRequest request = requestOf({"/a", "/b"}, 1);
  request.bagPath = dir_ / "missing.kbag";
  int called = 0;
  const Printed printed([&] {
    runOnTopics(commandOf([&](const std::string&) {
                  ++called;
                  return true;
                }),
                request);
  });
  EXPECT_EQ(called, 0);
  EXPECT_FALSE(printed.has("topic:"));
  EXPECT_TRUE(printed.has("kbag export frame success, duration: "));
  const std::string missing =
      "<E>TIME [MorvaBag::open,L0] bag file not exist: " + request.bagPath + "!";
  const std::string failed =
      "<E>TIME [operator(),L0] open bag file(" + request.bagPath + ") error(3)!";
  EXPECT_EQ(log_.lines(), (Names{missing, failed, missing, failed}));
}

class RunOnManyTopics : public RunOnTopics {
 protected:
  /// @return How often the bag was opened.
  int run(bool hasOutput, int threads) {
    std::atomic<int> whole = 0;
    TopicCommand command = commandOf({});
    command.hasOutput = [hasOutput](const std::string& topic) {
      return hasOutput || topic == "/t99";
    };
    command.exportTopic = [&](MorvaBag* bag, const std::string&, const std::string& topic,
                              const View& view, Crew*) {
      std::string payload;
      const bool isWhole = view.indexes.size() == 2 && topic == view.indexes[0].topicName.data() &&
                           bag->readMessage(view.indexes[1], &payload) && payload == "payload";
      whole += isWhole ? 1 : 0;
      return true;
    };
    Names topics;
    for (int i = 0; i < 100; ++i) topics.push_back("/t" + std::to_string(i));
    const std::string bag = makeBag(dir_ / "many.kbag", topics);
    const FailingFileCalls calls;
    TopicRequest request = requestOf(topics, threads);
    request.bagPath = bag;
    const Printed printed([&] { runOnTopics(command, request); });
    EXPECT_EQ(whole, 100);
    const int opened = calls.count(FailingFileCalls::Call::kOpen);
    fs::remove(bag);
    return opened;
  }
};

TEST_F(RunOnManyTopics, ThoseWithoutAnOutputShareABagBeyondTheUsualNumber) {
  EXPECT_EQ(run(false, 1), 32 + 1 + 1) << "32 tasks, the last topic's, and the shared one";
  EXPECT_EQ(run(false, 8), 32 + 1 + 1);
}

TEST_F(RunOnManyTopics, ThoseWithAnOutputHaveABagEach) { EXPECT_EQ(run(true, 8), 100); }

TEST_F(RunOnTopics, EmptyListPrintsANoticeAndLeavesFreshDirectories) {
  fs::create_directories(dir_ / "one");
  writeFile(dir_ / "one/stale", "x");
  const Printed printed(
      [&] { runOnTopics(commandOf([](const std::string&) { return true; }), requestOf({}, 2)); });
  EXPECT_EQ(printed.text(), "kbag export frame start tasks: 2.\nno topics need to export.\n");
  EXPECT_TRUE(fs::is_empty(dir_ / "one"));
  EXPECT_TRUE(fs::is_empty(dir_ / "two/deep"));
}

TEST_F(RunOnTopics, WipesItsSubdirectoriesAlone) {
  fs::create_directories(dir_ / "two/deep/folder");
  writeFile(dir_ / "two/deep/folder/stale", "x");
  writeFile(dir_ / "two/kept", "x");
  writeFile(dir_ / "kept", "x");
  const Printed printed([&] {
    runOnTopics(commandOf([](const std::string&) { return true; }), requestOf({"/a"}, 1));
  });
  EXPECT_TRUE(fs::is_empty(dir_ / "two/deep"));
  EXPECT_EQ(readFile(dir_ / "two/kept"), "x");
  EXPECT_EQ(readFile(dir_ / "kept"), "x");
}

TEST_F(RunOnTopics, WithoutAWorkerLogsAndTouchesNothing) {
  fs::create_directories(dir_ / "one");
  writeFile(dir_ / "one/kept", "x");
  const Printed printed([&] {
    const NoMoreThreads noMoreThreads;
    runOnTopics(commandOf([](const std::string&) { return true; }), requestOf({"/a"}, 8));
  });
  EXPECT_EQ(printed.text(), "");
  EXPECT_EQ(log_.lines(), Names{"<E>TIME [kbag_export_frame_mt,L0] task queue init(8) error!"});
  EXPECT_EQ(readFile(dir_ / "one/kept"), "x");
  EXPECT_FALSE(fs::exists(dir_ / "two"));
}

TEST_F(RunOnTopics, TaskClosesItsBagWhenItIsDone) {
  const auto openBags = [&] {
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
      std::error_code error;
      if (fs::read_symlink(entry, error) == bag_) ++count;
    }
    return count;
  };
  std::vector<int> open;
  const Printed printed([&] {
    runOnTopics(commandOf([&](const std::string&) {
                  open.push_back(openBags());
                  return true;
                }),
                requestOf({"/a", "/b", "/c"}, 1));
  });
  EXPECT_EQ(open, (std::vector<int>{1, 1, 1}));
}

TEST(KbagExportFrameMt, WithoutADirectoryExportsBesideTheBag) {
  const TempDir dir;
  const std::string bag = makeBag(dir / "rec.kbag", {"/raw_gnss_log"});
  const Printed printed([&] { kbag_export_frame_mt(bag, {"/raw_gnss_log"}, "", 1); });
  EXPECT_TRUE(fs::is_directory(dir / "export-rec.kbag/csv"));
  EXPECT_TRUE(fs::is_regular_file(dir / "export-rec.kbag/raw_gnss_log.txt"));
  EXPECT_FALSE(fs::exists(dir / "csv"));
}

TEST(KbagUnpackDataMt, WithoutADirectoryUnpacksBesideTheBag) {
  const TempDir dir;
  const std::string bag = makeBag(dir / "rec.kbag", {"/raw_gnss_log"});
  const Printed printed([&] { kbag_unpack_data_mt(bag, {"/raw_gnss_log"}, "", 3); });
  EXPECT_TRUE(printed.has("kbag export data start tasks: 3."));
  for (const char* const folder :
       {"calib/config", "images/camera_0", "images/camera_1", "lidar_points", "project_data"}) {
    EXPECT_TRUE(fs::is_empty(dir / ("data-rec.kbag/" + std::string(folder)))) << folder;
  }
  EXPECT_TRUE(fs::is_regular_file(dir / "data-rec.kbag/raw_gnss_log.txt"));
  EXPECT_FALSE(fs::exists(dir / "lidar_points"));
}

TEST(KbagExportFrameMt, PicturesAndTheirDirectoriesComeWithImagesOnly) {
  const TempDir dir;
  const std::string bag = makeBag(dir / "rec.kbag", {"/camera_left/h264"});
  const Printed without([&] { kbag_export_frame_mt(bag, {"/camera_left/h264"}, dir.path(), 1); });
  EXPECT_FALSE(fs::exists(dir / "h264"));
  EXPECT_FALSE(fs::exists(dir / "jpeg"));
  const Printed with(
      [&] { kbag_export_frame_mt(bag, {"/camera_left/h264"}, dir.path(), 1, true); });
  EXPECT_TRUE(fs::is_regular_file(dir / "h264/camera_left.h264"));
  EXPECT_TRUE(fs::is_directory(dir / "jpeg/camera_left"));
}

}  // namespace morva::test
