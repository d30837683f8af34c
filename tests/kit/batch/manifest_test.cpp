#include "kit/batch/manifest.h"

#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::batch {
namespace {

using test::FailingFileCalls;
using test::LogCapture;
using test::readFile;
using test::TempDir;
using test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

ManifestEntry entryOf(const std::string& project) {
  ManifestEntry entry;
  entry.project = project;
  entry.output = "out";
  entry.device = true;
  entry.bag = "2024-01-31-235959.kbin";
  entry.bagBytes = 5'000'000'000;
  entry.bagTimeUs = -1;
  entry.outcome = Outcome::kLosses;
  entry.errorCode = 4;
  entry.checkCode = 7;
  entry.failedTopics = {"/a", "/b"};
  entry.leftOutTopics = {"/c"};
  entry.message = "a \"quoted\" text";
  entry.files = 12;
  entry.bytes = 6'000'000'000;
  entry.seconds = 1.25;
  return entry;
}

std::vector<std::string> projectsOf(const Manifest& manifest) {
  std::vector<std::string> projects;
  for (const ManifestEntry& entry : manifest.entries()) projects.push_back(entry.project);
  return projects;
}

class ManifestFile : public testing::Test {
 protected:
  TempDir dir_;
  std::string path_ = dir_ / "manifest.json";
};

TEST_F(ManifestFile, KeepsEveryFieldOfAnEntry) {
  Manifest written;
  written.put(entryOf("/p"));
  ASSERT_TRUE(written.save(path_));
  Manifest manifest;
  ASSERT_EQ(manifest.load(path_), Manifest::Load::kOk);
  ASSERT_THAT(manifest.entries(), SizeIs(1));
  const ManifestEntry& entry = manifest.entries()[0];
  EXPECT_EQ(entry.project, "/p");
  EXPECT_EQ(entry.output, "out");
  EXPECT_TRUE(entry.device);
  EXPECT_EQ(entry.bag, "2024-01-31-235959.kbin");
  EXPECT_EQ(entry.bagBytes, 5'000'000'000U);
  EXPECT_EQ(entry.bagTimeUs, -1);
  EXPECT_EQ(entry.outcome, Outcome::kLosses);
  EXPECT_EQ(entry.errorCode, 4);
  EXPECT_EQ(entry.checkCode, 7);
  EXPECT_THAT(entry.failedTopics, ElementsAre("/a", "/b"));
  EXPECT_THAT(entry.leftOutTopics, ElementsAre("/c"));
  EXPECT_EQ(entry.message, "a \"quoted\" text");
  EXPECT_EQ(entry.files, 12U);
  EXPECT_EQ(entry.bytes, 6'000'000'000U);
  EXPECT_EQ(entry.seconds, 1.25);
}

TEST_F(ManifestFile, ReadsAsDocumented) {
  Manifest manifest;
  ManifestEntry entry = entryOf("/p");
  entry.failedTopics = {};
  manifest.put(entry);
  ASSERT_TRUE(manifest.save(path_));
  EXPECT_EQ(readFile(path_), R"({
  "format": "kbagkit batch manifest",
  "version": 1,
  "projects": [
    {
      "project": "/p",
      "output": "out",
      "mode": "device",
      "bag": "2024-01-31-235959.kbin",
      "bag_bytes": 5000000000,
      "bag_time_us": -1,
      "result": "losses",
      "error_code": 4,
      "check_code": 7,
      "failed_topics": [],
      "left_out_topics": [
        "/c"
      ],
      "message": "a \"quoted\" text",
      "files": 12,
      "bytes": 6000000000,
      "seconds": 1.25
    }
  ]
}
)");
}

TEST_F(ManifestFile, EntriesStandInTheOrderOfTheirProjects) {
  Manifest manifest;
  for (const char* project : {"/c", "/a", "/b", "/a"}) manifest.put(entryOf(project));
  EXPECT_THAT(projectsOf(manifest), ElementsAre("/a", "/b", "/c"));
}

TEST_F(ManifestFile, LaterEntryOfAProjectReplacesTheEarlierOne) {
  Manifest manifest;
  manifest.put(entryOf("/p"));
  ManifestEntry later = entryOf("/p");
  later.files = 99;
  manifest.put(later);
  ASSERT_NE(manifest.find("/p"), nullptr);
  EXPECT_EQ(manifest.find("/p")->files, 99U);
  EXPECT_EQ(manifest.find("/q"), nullptr);
}

TEST_F(ManifestFile, EveryOutcomeComesBack) {
  Manifest manifest;
  const std::vector<Outcome> outcomes = {Outcome::kDone, Outcome::kLosses, Outcome::kFailed,
                                         Outcome::kStopped};
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    ManifestEntry entry = entryOf("/p" + std::to_string(i));
    entry.outcome = outcomes[i];
    manifest.put(entry);
  }
  ASSERT_TRUE(manifest.save(path_));
  Manifest loaded;
  ASSERT_EQ(loaded.load(path_), Manifest::Load::kOk);
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    EXPECT_EQ(loaded.entries()[i].outcome, outcomes[i]);
  }
}

TEST_F(ManifestFile, MissingFileIsToldFromABrokenOne) {
  Manifest manifest;
  EXPECT_EQ(manifest.load(path_), Manifest::Load::kMissing);
  writeFile(path_, "");
  EXPECT_EQ(manifest.load(path_), Manifest::Load::kBroken);
}

TEST_F(ManifestFile, WhatIsNoManifestIsBroken) {
  Manifest written;
  written.put(entryOf("/p"));
  ASSERT_TRUE(written.save(path_));
  const std::string whole = readFile(path_);
  const auto with = [&](const std::string& from, const std::string& to) {
    std::string text = whole;
    text.replace(text.find(from), from.size(), to);
    return text;
  };
  for (const std::string& text :
       {std::string("[]"), std::string("{}"), whole.substr(0, whole.size() / 2),
        with("kbagkit batch manifest", "another format"), with("\"version\": 1", "\"version\": 2"),
        with("\"version\": 1", "\"version\": \"1\""), with("\"files\": 12", "\"files\": -12"),
        with("\"files\": 12", "\"files\": \"12\""), with("\"files\"", "\"fils\""),
        with("\"losses\"", "\"unknown\""), with("\"/a\"", "1"), with("1.25", "true"),
        with("\"/p\"", "null"), std::string(100000, '[')}) {
    writeFile(path_, text);
    Manifest manifest;
    EXPECT_EQ(manifest.load(path_), Manifest::Load::kBroken) << text.substr(0, 300);
    EXPECT_THAT(manifest.entries(), IsEmpty());
  }
}

TEST_F(ManifestFile, NameThatIsNoUtf8CostsOnlyItself) {
  Manifest manifest;
  manifest.put(entryOf("/\xff"));
  manifest.put(entryOf("/p"));
  ASSERT_TRUE(manifest.save(path_));
  Manifest loaded;
  ASSERT_EQ(loaded.load(path_), Manifest::Load::kOk);
  EXPECT_NE(loaded.find("/p"), nullptr);
}

TEST_F(ManifestFile, FullDiskLeavesTheOldManifest) {
  ASSERT_TRUE(recordInManifest(path_, entryOf("/p")));
  const std::string before = readFile(path_);
  {
    FailingFileCalls disk;
    disk.fail(FailingFileCalls::Call::kPwrite);
    const LogCapture log;
    EXPECT_FALSE(recordInManifest(path_, entryOf("/q")));
    EXPECT_THAT(log.lines(), ElementsAre("<E>TIME [recordInManifest,L0] write manifest(" + path_ +
                                         ") error: No space left on device!"));
  }
  EXPECT_EQ(readFile(path_), before);
}

TEST_F(ManifestFile, BrokenManifestIsBegunAnewWithAWarning) {
  writeFile(path_, "{");
  const LogCapture log;
  ASSERT_TRUE(recordInManifest(path_, entryOf("/p")));
  EXPECT_THAT(log.lines(), ElementsAre("<W>TIME [recordInManifest,L0] manifest(" + path_ +
                                       ") cannot be read and is begun anew!"));
  Manifest manifest;
  EXPECT_EQ(manifest.load(path_), Manifest::Load::kOk);
  EXPECT_THAT(projectsOf(manifest), ElementsAre("/p"));
}

TEST_F(ManifestFile, EntriesOfSeveralWritersAllStay) {
  std::vector<std::thread> writers;
  for (int writer = 0; writer < 4; ++writer) {
    writers.emplace_back([this, writer] {
      for (int i = 0; i < 5; ++i) {
        const std::string project = "/p" + std::to_string(writer) + std::to_string(i);
        EXPECT_TRUE(recordInManifest(path_, entryOf(project)));
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  Manifest manifest;
  ASSERT_EQ(manifest.load(path_), Manifest::Load::kOk);
  EXPECT_THAT(manifest.entries(), SizeIs(20));
}

}  // namespace
}  // namespace morva::batch
