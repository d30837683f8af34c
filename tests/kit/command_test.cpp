// kbagkit as its users run it. KBAGKIT is the program's path.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "morva/bag.h"
#include "platform/file.h"
#include "support/process.h"
#include "support/temp_dir.h"

using morva::MorvaBag;
using morva::test::peakMemoryOf;
using morva::test::ProcessResult;
using morva::test::readFile;
using morva::test::runProcess;
using morva::test::TempDir;
using morva::test::writeFile;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

ProcessResult kbagkit(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), KBAGKIT);
  return runProcess(arguments);
}

ProcessResult shell(const std::string& script) { return runProcess({"bash", "-c", script}); }

// A recording that takes no time.
std::string quick(const std::string& path) {
  return std::string(KBAGKIT) + " simulate '" + path + "' --seconds 0.2 --points 100 --cameras 0";
}

}  // namespace

TEST(Kbagkit, HelpGoesToStandardOutputAndIsNoError) {
  const ProcessResult result = kbagkit({"--help"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.out, HasSubstr("simulate"));
  EXPECT_THAT(result.err, IsEmpty());
}

TEST(Kbagkit, VersionIsPrinted) {
  const ProcessResult result = kbagkit({"--version"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.out, testing::MatchesRegex("kbagkit [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Kbagkit, WrongUsageIsExitStatusTwoAndSaysWhy) {
  const std::vector<std::vector<std::string>> mistakes = {
      {},
      {"frobnicate"},
      {"simulate"},
      {"simulate", "a.kbag", "b.kbag"},
      {"simulate", "a.kbag", "--frobnicate"},
      {"simulate", "a.kbag", "--seconds", "0"},
      {"simulate", "a.kbag", "--seconds", "nan"},
      {"simulate", "a.kbag", "--seconds", "90000"},
      {"simulate", "a.kbag", "--seconds", "ten"},
      {"simulate", "a.kbag", "--points", "-1"},
      {"simulate", "a.kbag", "--cameras", "8"},
      {"simulate", "a.kbag", "--compression", "gzip"},
      {"simulate", "a.kbag", "--noise", "-0.1"},
      {"simulate", "a.kbag", "--noise", "inf"},
      {"simulate", "a.kbag", "--elevation", "1.5"},
      {"simulate", "a.kbag", "--seed", "1.5"},
      {"simulate", "a.kbag", "--truth", "a.kbag"},
  };
  const TempDir directory;
  for (std::vector<std::string> arguments : mistakes) {
    const std::string line = testing::PrintToString(arguments);
    arguments.insert(arguments.begin(), KBAGKIT);
    const ProcessResult result = runProcess(arguments, directory.path());
    EXPECT_EQ(result.exitCode, 2) << line;
    EXPECT_THAT(result.out, IsEmpty()) << line;
    EXPECT_THAT(result.err, Not(IsEmpty())) << line;
    EXPECT_FALSE(osmik::File::exists(directory / "a.kbag")) << line;
  }
}

TEST(KbagkitSimulate, HelpListsEveryOption) {
  const ProcessResult result = kbagkit({"simulate", "--help"});
  EXPECT_EQ(result.exitCode, 0);
  for (const char* option :
       {"OUT.kbag", "--seconds", "--seed", "--points", "--cameras", "--compression", "--noise",
        "--elevation", "--still", "--uncalibrated", "--truth"}) {
    EXPECT_THAT(result.out, HasSubstr(option));
  }
}

TEST(KbagkitSimulate, MakesTheRecordingThatItsOptionsSay) {
  const TempDir directory;
  const std::string bag = directory / "with space, \xC3\xA4.kbag";
  const std::string truth = directory / "truth.json";
  const ProcessResult result =
      kbagkit({"simulate", bag,    "--seconds",   "0.5",  "--seed",        "7",
               "--points", "300",  "--cameras",   "1",    "--compression", "zstd",
               "--noise",  "0.02", "--elevation", "0.01", "--still",       "--uncalibrated",
               "--truth",  truth});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.err, IsEmpty());
  EXPECT_THAT(result.out, HasSubstr(bag + ": 0.5 s\n"));
  EXPECT_THAT(result.out, HasSubstr("/lidar_to_platform                   6       541"));
  EXPECT_EQ(MorvaBag::checkAll(bag), 0);

  const auto options = nlohmann::json::parse(readFile(truth)).at("options");
  EXPECT_EQ(options, nlohmann::json::parse(R"({"seconds": 0.5, "seed": 7, "points": 300,
      "cameras": 1, "noise_m": 0.02, "elevation_rad": 0.01, "still": true, "calibrated": false})"));
  MorvaBag reader;
  ASSERT_EQ(reader.open(bag, morva::BagMode::kRead), 0);
  EXPECT_EQ(reader.compressionType, morva::CompressionType::kZstd);
}

TEST(KbagkitSimulate, ExistingOutputIsNotTouched) {
  const TempDir directory;
  const std::string bag = directory / "a.kbag";
  writeFile(bag, "mine");
  const ProcessResult result = shell(quick(bag));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.err, HasSubstr("bag file exist: " + bag + "!"));
  EXPECT_THAT(result.err, HasSubstr("kbagkit: " + bag + " was not made\n"));
  EXPECT_EQ(readFile(bag), "mine");
}

TEST(KbagkitSimulate, FullDiskLeavesNothing) {
  const TempDir directory;
  const std::string bag = directory / "a.kbag";
  const ProcessResult result = shell("trap '' XFSZ; ulimit -f 20; " + std::string(KBAGKIT) +
                                     " simulate '" + bag + "' --seconds 1 --cameras 0");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("was not made"));
  EXPECT_FALSE(osmik::File::exists(bag));
}

TEST(KbagkitSimulate, LostSummaryIsAFailure) {
  const TempDir directory;
  EXPECT_EQ(shell(quick(directory / "a.kbag") + " > /dev/full").exitCode, 1);
}

TEST(KbagkitSimulate, TerminatedRecordingIsRemoved) {
  const TempDir directory;
  const std::string bag = directory / "a.kbag";
  const ProcessResult result = shell(std::string(KBAGKIT) + " simulate '" + bag +
                                     "' --seconds 86400 --cameras 0 & pid=$!; " + "until [ -s '" +
                                     bag + "' ]; do :; done; kill -TERM $pid; wait $pid");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("kbagkit: interrupted: " + bag + " was not made\n"));
  EXPECT_FALSE(osmik::File::exists(bag));
}

TEST(KbagkitColour, IsShownOnATerminalAlone) {
  const TempDir directory;
  const std::string bold = "\033[1m";
  EXPECT_THAT(shell(quick(directory / "1.kbag")).out, Not(HasSubstr("\033")));
  if (runProcess({"script", "--version"}).exitCode != 0) GTEST_SKIP() << "no program `script`";
  const auto onTerminal = [](const std::string& command) {
    return shell("unset NO_COLOR; script -qec \"" + command + "\" /dev/null").out;
  };
  EXPECT_THAT(onTerminal(quick(directory / "2.kbag")), HasSubstr(bold));
  EXPECT_THAT(onTerminal("NO_COLOR=1 " + quick(directory / "3.kbag")), Not(HasSubstr(bold)));
}

TEST(KbagkitSimulate, LongRecordingNeedsTheMemoryOfAShortOne) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer holds on to memory";
#endif
  const TempDir directory;
  const auto peak = [&directory](const std::string& seconds) {
    return peakMemoryOf({KBAGKIT, "simulate", directory / (seconds + ".kbag"), "--seconds", seconds,
                         "--points", "500", "--cameras", "0", "--truth",
                         directory / (seconds + ".json")});
  };
  const std::int64_t shortRun = peak("20");
  const std::int64_t longRun = peak("400");
  // 21,000 more messages: 200 bytes each for the index, in memory and as it is written. Their
  // payloads are 40 MB, the truth's rows 60 MB of JSON values.
  EXPECT_LT(longRun - shortRun, 10'000'000) << shortRun << " -> " << longRun;
  RecordProperty("peak_bytes", std::to_string(shortRun) + " -> " + std::to_string(longRun));
}
