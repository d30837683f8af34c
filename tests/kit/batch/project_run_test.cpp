#include "kit/batch/project_run.h"

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/batch/batch.h"
#include "kit/batch/output_size.h"
#include "morva/bag.h"
#include "morva/batch_task.h"
#include "platform/dir_lock.h"
#include "platform/interrupt.h"
#include "platform/tracer.h"
#include "support/log_capture.h"
#include "support/no_rights.h"
#include "support/temp_dir.h"
#include "task/recordings.h"

namespace morva::batch {
namespace {

namespace fs = std::filesystem;

using test::imuMessage;
using test::kBagName;
using test::kStartUs;
using test::logMessage;
using test::recordProject;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class RunProjects : public testing::Test {
 protected:
  RunProjects() { options_.outDir = dir_ / "out"; }

  std::string makeProject(const std::string& name) {
    recordProject(dir_ / name, {imuMessage(kStartUs)});
    return dir_ / name;
  }
  /// A project whose only topic cannot be unpacked: a folder stands where its table should be.
  std::string makeFailingProject(const std::string& name) {
    fs::create_directories(dir_ / ("out/" + name + "/imu.csv"));
    return makeProject(name);
  }
  void run(const std::vector<std::string>& folders) {
    options_.folders = folders;
    const ProjectList list = listProjects(options_);
    ASSERT_EQ(list.problem, "");
    fs::create_directories(options_.outDir);
    results_ = runProjects(list.projects, options_);
    ASSERT_EQ(results_.size(), list.projects.size());
  }
  /// Runs one project and returns its entry.
  ManifestEntry runOne(const std::string& folder) {
    run({folder});
    return results_.at(0).entry;
  }
  [[nodiscard]] Manifest manifest() const {
    Manifest result;
    EXPECT_EQ(result.load(dir_ / "out/manifest.json"), Manifest::Load::kOk);
    return result;
  }

  test::TempDir dir_;
  test::LogCapture log_;
  BatchOptions options_;
  std::vector<ProjectResult> results_;
};

TEST_F(RunProjects, SoundProjectIsDoneAndRecorded) {
  const std::string path = makeProject("p1");
  const ManifestEntry entry = runOne(path);
  EXPECT_EQ(entry.project, path);
  EXPECT_EQ(entry.output, "p1");
  EXPECT_FALSE(entry.device);
  EXPECT_EQ(entry.bag, kBagName);
  EXPECT_EQ(entry.bagBytes, fs::file_size(path + "/" + kBagName));
  EXPECT_GT(entry.bagTimeUs, kStartUs);
  EXPECT_EQ(entry.outcome, Outcome::kDone);
  EXPECT_EQ(entry.errorCode, BagTool::kSuccess);
  EXPECT_EQ(entry.checkCode, 0);
  EXPECT_EQ(entry.message, "");
  EXPECT_EQ(entry.files, 1U);
  EXPECT_EQ(entry.bytes, fs::file_size(dir_ / "out/p1/imu.csv"));
  EXPECT_EQ(statusOf(results_), kAllDone);
  const Manifest recorded = manifest();
  ASSERT_THAT(recorded.entries(), SizeIs(1));
  EXPECT_EQ(recorded.entries()[0].bytes, entry.bytes);
  EXPECT_THAT(test::taskLog(dir_ / "out/p1/log"),
              ElementsAre("<I>TIME BagTool::Init,init success, project nums: 1.",
                          "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(RunProjects, WithoutAnOutFolderTheManifestIsInTheProjectsOutput) {
  const std::string path = makeProject("p1");
  options_.outDir = "";
  options_.folders = {path};
  results_ = runProjects(listProjects(options_).projects, options_);
  Manifest manifest;
  ASSERT_EQ(manifest.load(path + "/output/manifest.json"), Manifest::Load::kOk);
  ASSERT_THAT(manifest.entries(), SizeIs(1));
  EXPECT_EQ(manifest.entries()[0].output, ".");
  EXPECT_EQ(manifest.entries()[0].files, 1U);
  results_ = runProjects(listProjects(options_).projects, options_);
  EXPECT_TRUE(results_.at(0).skipped);
}

TEST_F(RunProjects, DamagedBagIsUnpackedAsFarAsItGoesAndMarked) {
  const std::string path = makeProject("p1");
  std::string bytes = test::readFile(path + "/" + kBagName);
  bytes[bytes.find(imuMessage(kStartUs).payload)] ^= 1;
  test::writeFile(path + "/" + kBagName, bytes);
  const ManifestEntry entry = runOne(path);
  EXPECT_EQ(entry.outcome, Outcome::kLosses);
  EXPECT_EQ(entry.errorCode, BagTool::kSuccess);
  EXPECT_EQ(entry.checkCode, 7);
  EXPECT_EQ(entry.message, "the bag is damaged (code 7)");
  EXPECT_EQ(statusOf(results_), kSomeLosses);
}

TEST_F(RunProjects, TopicThatFailsIsMarked) {
  const ManifestEntry entry = runOne(makeFailingProject("p1"));
  EXPECT_EQ(entry.outcome, Outcome::kLosses);
  EXPECT_EQ(entry.checkCode, 0);
  EXPECT_THAT(entry.failedTopics, ElementsAre("/imu"));
  EXPECT_EQ(entry.message, "topics were not unpacked");
  EXPECT_EQ(statusOf(results_), kSomeLosses);
}

TEST_F(RunProjects, TopicThatNothingUnpacksIsNamedAndNoLoss) {
  recordProject(dir_ / "p1", {imuMessage(kStartUs), logMessage("/odd", "nothing unpacks this")});
  const ManifestEntry entry = runOne(dir_ / "p1");
  EXPECT_EQ(entry.outcome, Outcome::kDone);
  EXPECT_THAT(entry.failedTopics, IsEmpty());
  EXPECT_THAT(entry.leftOutTopics, ElementsAre("/odd"));
  EXPECT_EQ(statusOf(results_), kAllDone);
}

TEST_F(RunProjects, MissingAndEmptyFoldersFailAndNothingIsMadeInThem) {
  fs::create_directories(dir_ / "empty");
  for (const bool withOut : {true, false}) {
    options_.outDir = withOut ? dir_ / "out" : "";
    options_.folders = {dir_ / "empty", dir_ / "missing"};
    results_ = runProjects(listProjects(options_).projects, options_);
    ASSERT_THAT(results_, SizeIs(2));
    EXPECT_EQ(results_[0].entry.message, "there is no bag in the folder");
    EXPECT_EQ(results_[1].entry.message, "there is no such folder");
    for (const ProjectResult& result : results_) {
      EXPECT_EQ(result.entry.outcome, Outcome::kFailed);
      EXPECT_EQ(result.entry.errorCode, BagTool::kNoBag);
    }
    EXPECT_EQ(statusOf(results_), kSomeFailed);
  }
  EXPECT_TRUE(fs::is_empty(dir_ / "empty"));
  EXPECT_FALSE(fs::exists(dir_ / "missing"));
}

/// The same, where the permissions of files hold for root too.
class RunProjectsWithoutRights : public testing::Test {
 protected:
  /// Runs one project with an output folder and returns its entry.
  ManifestEntry runOne(const std::string& folder, const std::string& outDir) {
    BatchOptions options;
    options.outDir = outDir;
    options.folders = {folder};
    results_ = runProjects(listProjects(options).projects, options);
    return results_.at(0).entry;
  }
  void SetUp() override {
    if (!test::NoRights::areInForce()) GTEST_SKIP() << "root cannot give up its rights: skipped";
    recordProject(dir_ / "p1", {imuMessage(kStartUs)});
  }

  test::NoRights noRights_;  // before the folder, which then belongs to nobody
  test::TempDir dir_;
  test::LogCapture log_;
  std::vector<ProjectResult> results_;
};

TEST_F(RunProjectsWithoutRights, FolderThatCannotBeReadFails) {
  const test::WithPermissions closed(dir_ / "p1", test::kNoAccess);
  const ManifestEntry entry = runOne(dir_ / "p1", dir_ / "out");
  EXPECT_EQ(entry.outcome, Outcome::kFailed);
  EXPECT_EQ(entry.errorCode, BagTool::kNoBag);
  EXPECT_EQ(entry.message, "the folder cannot be read");
  EXPECT_EQ(statusOf(results_), kSomeFailed);
}

TEST_F(RunProjectsWithoutRights, BagThatCannotBeReadFails) {
  const test::WithPermissions closed(dir_ / "p1/" + kBagName, test::kNoAccess);
  const ManifestEntry entry = runOne(dir_ / "p1", dir_ / "out");
  EXPECT_EQ(entry.outcome, Outcome::kFailed);
  EXPECT_EQ(entry.errorCode, BagTool::kNoBag);
  EXPECT_NE(entry.checkCode, 0);
}

TEST_F(RunProjectsWithoutRights, OutputInAReadOnlyProjectFolderFails) {
  const test::WithPermissions readOnly(dir_ / "p1", test::kReadOnly);
  const ManifestEntry entry = runOne(dir_ / "p1", "");
  EXPECT_EQ(entry.outcome, Outcome::kFailed);
  EXPECT_EQ(entry.message, "the output folder cannot be made");
}

TEST_F(RunProjectsWithoutRights, ReadOnlyProjectFolderIsUnpackedElsewhere) {
  const test::WithPermissions readOnly(dir_ / "p1", test::kReadOnly);
  fs::create_directories(dir_ / "out");
  EXPECT_EQ(runOne(dir_ / "p1", dir_ / "out").outcome, Outcome::kDone);
}

TEST_F(RunProjectsWithoutRights, OutputFolderThatCannotBeWrittenFails) {
  fs::create_directories(dir_ / "out");
  const test::WithPermissions readOnly(dir_ / "out", test::kReadOnly);
  const ManifestEntry entry = runOne(dir_ / "p1", dir_ / "out");
  EXPECT_EQ(entry.outcome, Outcome::kFailed);
  EXPECT_EQ(entry.message, "the output folder cannot be made");
  EXPECT_EQ(statusOf(results_), kSomeFailed);
}

TEST_F(RunProjects, WhatIsNoBagFails) {
  fs::create_directories(dir_ / "p1");
  test::writeFile(dir_ / "p1/" + kBagName, "no bag");
  const ManifestEntry entry = runOne(dir_ / "p1");
  EXPECT_EQ(entry.outcome, Outcome::kFailed);
  EXPECT_EQ(entry.errorCode, BagTool::kNoBag);
  EXPECT_EQ(entry.checkCode, 7);
}

TEST_F(RunProjects, BagWithoutAnIndexFailsWithAdvice) {
  const std::string path = makeProject("p1");
  // A recorder that was killed: all messages are there, what closes the bag is not.
  MorvaBag bag;
  bag.topics = {"/imu"};
  const std::string unclosed = dir_ / "unclosed";
  ASSERT_EQ(bag.open(unclosed, BagMode::kWrite), 0);
  ASSERT_TRUE(bag.writeMessage("/imu", kStartUs,
                               MorvaBag::makeMessageHeader(false, 1, kStartUs, kStartUs),
                               imuMessage(kStartUs).payload));
  fs::copy_file(unclosed, path + "/" + kBagName, fs::copy_options::overwrite_existing);
  const ManifestEntry entry = runOne(path);
  EXPECT_EQ(entry.outcome, Outcome::kFailed);
  EXPECT_EQ(entry.errorCode, BagTool::kNoBag);
  EXPECT_EQ(entry.message, "the bag has no usable index, which \"kbag reindex\" can mend");
}

TEST_F(RunProjects, OutputFolderThatCannotBeMadeFails) {
  const std::string path = makeProject("p1");
  fs::create_directories(dir_ / "out");
  test::writeFile(dir_ / "out/p1", "in the way");
  const ManifestEntry entry = runOne(path);
  EXPECT_EQ(entry.outcome, Outcome::kFailed);
  EXPECT_EQ(entry.errorCode, BagTool::kNoBag);
  EXPECT_EQ(entry.message, "the output folder cannot be made");
  EXPECT_THAT(manifest().entries(), SizeIs(1));
}

TEST_F(RunProjects, LogFolderThatCannotBeMadeFails) {
  const std::string path = makeProject("p1");
  fs::create_directories(dir_ / "out/p1");
  test::writeFile(dir_ / "out/p1/log", "in the way");
  const ManifestEntry entry = runOne(path);
  EXPECT_EQ(entry.outcome, Outcome::kFailed);
  EXPECT_EQ(entry.errorCode, BagTool::kNotStarted);
  EXPECT_EQ(entry.message, "the log folder cannot be made");
}

TEST_F(RunProjects, LogThatCannotBeWrittenFails) {
  const std::string path = makeProject("p1");
  for (const std::string& name : test::comingLogNames()) {
    fs::create_directories(dir_ / ("out/p1/log/" + name));  // in the way
  }
  const ManifestEntry entry = runOne(path);
  EXPECT_EQ(entry.outcome, Outcome::kFailed);
  EXPECT_EQ(entry.errorCode, BagTool::kNotStarted);
  EXPECT_EQ(entry.message, "the log cannot be written");
}

TEST_F(RunProjects, LogFolderIsNotALinkThatLeadsElsewhere) {
  const std::string path = makeProject("p1");
  fs::create_directories(dir_ / "out/p1");
  fs::create_directory(dir_ / "elsewhere");
  fs::create_directory_symlink(dir_ / "elsewhere", dir_ / "out/p1/log");
  EXPECT_EQ(runOne(path).outcome, Outcome::kDone);
  EXPECT_TRUE(fs::is_empty(dir_ / "elsewhere"));
  EXPECT_FALSE(fs::is_empty(dir_ / "out/p1/log"));
}

TEST_F(RunProjects, OutputThatAnotherRunWorksOnFailsAndKeepsTheManifest) {
  const std::string path = makeProject("p1");
  runOne(path);
  osmik::DirLock other;
  ASSERT_EQ(other.lock(dir_ / "out/p1/log", false), osmik::DirLock::Result::kHeld);
  options_.force = true;
  const ManifestEntry entry = runOne(path);
  EXPECT_EQ(entry.outcome, Outcome::kFailed);
  EXPECT_EQ(entry.message, "another run is at work on this output");
  EXPECT_EQ(statusOf(results_), kSomeFailed);
  EXPECT_EQ(manifest().entries().at(0).outcome, Outcome::kDone);
}

class RunProjectsAgain : public RunProjects {
 protected:
  RunProjectsAgain() : path_(makeProject("p1")) { run({path_}); }
  [[nodiscard]] bool isSkipped() {
    run({path_});
    return results_.at(0).skipped;
  }
  std::string path_;
};

TEST_F(RunProjectsAgain, WhatIsDoneIsSkipped) {
  const auto before = fs::last_write_time(dir_ / "out/p1/imu.csv");
  EXPECT_TRUE(isSkipped());
  EXPECT_EQ(results_[0].entry.files, 1U);
  EXPECT_EQ(statusOf(results_), kAllDone);
  EXPECT_EQ(fs::last_write_time(dir_ / "out/p1/imu.csv"), before);
}

TEST_F(RunProjectsAgain, LossesAreSkippedTooAndStillCount) {
  path_ = makeFailingProject("p2");
  EXPECT_FALSE(isSkipped());
  EXPECT_TRUE(isSkipped());
  EXPECT_EQ(statusOf(results_), kSomeLosses);
}

TEST_F(RunProjectsAgain, ForceRedoesIt) {
  options_.force = true;
  EXPECT_FALSE(isSkipped());
}

TEST_F(RunProjectsAgain, OtherModeRedoesIt) {
  options_.device = true;
  EXPECT_FALSE(isSkipped());
  EXPECT_TRUE(results_[0].entry.device);
}

TEST_F(RunProjectsAgain, ChangedBagRedoesIt) {
  fs::remove(path_ + "/" + kBagName);
  recordProject(path_, {imuMessage(kStartUs), imuMessage(kStartUs + 10000)});
  EXPECT_FALSE(isSkipped());
  EXPECT_TRUE(isSkipped());
}

TEST_F(RunProjectsAgain, TouchedBagRedoesIt) {
  fs::last_write_time(path_ + "/" + kBagName, fs::file_time_type::clock::now());
  EXPECT_FALSE(isSkipped());
}

TEST_F(RunProjectsAgain, OutputThatIsNoLongerWholeRedoesIt) {
  fs::remove(dir_ / "out/p1/imu.csv");
  EXPECT_FALSE(isSkipped());
  EXPECT_TRUE(fs::exists(dir_ / "out/p1/imu.csv"));
}

TEST_F(RunProjectsAgain, BrokenManifestRedoesIt) {
  test::writeFile(dir_ / "out/manifest.json", "{");
  EXPECT_FALSE(isSkipped());
  EXPECT_TRUE(isSkipped());
}

TEST_F(RunProjects, FailedProjectsDoNotKeepOthersFromBeingDone) {
  std::vector<std::string> folders = {dir_ / "missing"};
  for (const char* name : {"p1", "p2", "p3"}) folders.push_back(makeProject(name));
  for (const int jobs : {1, 3}) {
    options_.jobs = jobs;
    options_.force = true;
    run(folders);
    std::vector<Outcome> outcomes;
    for (const ProjectResult& result : results_) outcomes.push_back(result.entry.outcome);
    EXPECT_THAT(outcomes,
                ElementsAre(Outcome::kFailed, Outcome::kDone, Outcome::kDone, Outcome::kDone));
    EXPECT_THAT(manifest().entries(), SizeIs(4));
  }
}

/// Sends the program a signal when a line with `text` is logged.
struct SignalAtLine final : osmik::TracerSink {
  explicit SignalAtLine(std::string wanted) : text(std::move(wanted)) {}
  void write(int /*level*/, std::string_view line) override {
    if (line.find(text) == std::string_view::npos) return;
    text = "no line has this";
    std::raise(SIGINT);
  }
  std::string text;
};

TEST_F(RunProjects, InterruptStopsTheProjectAtWorkAndBeginsNoOther) {
  std::vector<std::string> folders;
  for (const char* name : {"p1", "p2", "p3"}) {
    std::vector<test::RecordedMessage> messages;
    for (int i = 0; i < 3; ++i) messages.push_back(imuMessage(kStartUs + 10000 * i));
    messages.push_back(test::magneticMessage(kStartUs));
    recordProject(dir_ / name, messages);
    folders.push_back(dir_ / name);
  }
  const auto sink = std::make_shared<SignalAtLine>("export [/magnetic] data finished.");
  osmik::Singleton<osmik::Tracer>::getInstance().addSink(sink);
  run(folders);
  osmik::Singleton<osmik::Tracer>::getInstance().removeSink(sink);
  EXPECT_EQ(statusOf(results_), kInterrupted);
  EXPECT_FALSE(results_[1].begun);
  EXPECT_FALSE(results_[2].begun);
  EXPECT_FALSE(fs::exists(dir_ / "out/p2"));

  run(folders);
  EXPECT_EQ(statusOf(results_), kAllDone);
  EXPECT_THAT(manifest().entries(), SizeIs(3));
}

TEST_F(RunProjects, InterruptInTheCheckStopsThere) {
  const std::string path = makeProject("p1");
  const osmik::Interrupt interrupt;
  std::raise(SIGINT);
  ProjectState state;
  options_.folders = {path};
  const Project project = listProjects(options_).projects.at(0);
  const ProjectResult result = ProjectRun(project, options_, &state).run();
  EXPECT_EQ(result.entry.outcome, Outcome::kStopped);
  EXPECT_EQ(result.entry.errorCode, BagTool::kStopped);
  EXPECT_EQ(state.phase, Phase::kEnded);
  EXPECT_FALSE(fs::exists(dir_ / "out/p1/imu.csv"));
}

}  // namespace
}  // namespace morva::batch
