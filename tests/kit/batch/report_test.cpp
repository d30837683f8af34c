#include "kit/batch/report.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "kit/batch/batch.h"

namespace morva::batch {
namespace {

ProjectResult resultOf(const std::string& project, Outcome outcome) {
  ProjectResult result;
  result.begun = true;
  result.recorded = true;
  result.entry.project = project;
  result.entry.outcome = outcome;
  return result;
}

std::vector<ProjectResult> someResults() {
  ProjectResult done = resultOf("/all/p1", Outcome::kDone);
  done.entry.files = 12;
  done.entry.bytes = 3456;
  done.entry.seconds = 1.25;
  done.skipped = true;
  ProjectResult losses = resultOf("/all/project 2", Outcome::kLosses);
  losses.entry.message = "topics were not unpacked";
  losses.entry.failedTopics = {"/a", "/b"};
  losses.entry.leftOutTopics = {"/c"};
  ProjectResult notBegun = resultOf("/all/p3", Outcome::kFailed);
  notBegun.begun = false;
  return {done, losses, notBegun};
}

TEST(BatchReport, TableHasARowForEachProjectAndASum) {
  setenv("NO_COLOR", "1", 1);
  EXPECT_EQ(tableOf(someResults()),
            "result     project      files           bytes    seconds\n"
            "done       p1              12            3456        1.2  of an earlier run\n"
            "losses     project 2        0               0        0.0  "
            "topics were not unpacked; /a; /b; /c left out\n"
            "not begun  p3               0               0        0.0\n"
            "2 of 3 projects are unpacked\n");
}

TEST(BatchReport, JsonHasTheManifestsEntriesAndTheExitStatus) {
  const auto document = nlohmann::json::parse(jsonOf(someResults(), 130));
  EXPECT_EQ(document["exit_status"], 130);
  ASSERT_EQ(document["projects"].size(), 3U);
  EXPECT_EQ(document["projects"][0]["project"], "/all/p1");
  EXPECT_EQ(document["projects"][0]["result"], "done");
  EXPECT_EQ(document["projects"][0]["skipped"], true);
  EXPECT_EQ(document["projects"][1]["failed_topics"], nlohmann::json({"/a", "/b"}));
  EXPECT_EQ(document["projects"][2]["result"], "not begun");
}

TEST(BatchStatus, IsTheWorstThatHappened) {
  const auto statusWith = [](const std::vector<Outcome>& outcomes) {
    std::vector<ProjectResult> results;
    for (const Outcome outcome : outcomes) results.push_back(resultOf("/p", outcome));
    return statusOf(results);
  };
  EXPECT_EQ(statusWith({}), kAllDone);
  EXPECT_EQ(statusWith({Outcome::kDone, Outcome::kDone}), kAllDone);
  EXPECT_EQ(statusWith({Outcome::kDone, Outcome::kLosses}), kSomeLosses);
  EXPECT_EQ(statusWith({Outcome::kLosses, Outcome::kFailed}), kSomeFailed);
  EXPECT_EQ(statusWith({Outcome::kFailed, Outcome::kStopped}), kInterrupted);
}

TEST(BatchStatus, ProjectThatWasNotBegunIsAnInterruption) {
  ProjectResult result = resultOf("/p", Outcome::kDone);
  result.begun = false;
  EXPECT_EQ(statusOf({result}), kInterrupted);
}

TEST(BatchStatus, ResultThatIsNotInTheManifestIsAFailure) {
  ProjectResult result = resultOf("/p", Outcome::kDone);
  result.recorded = false;
  EXPECT_EQ(statusOf({result}), kSomeFailed);
}

}  // namespace
}  // namespace morva::batch
