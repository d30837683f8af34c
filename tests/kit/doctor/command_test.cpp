// kbagkit doctor and kbagkit salvage as their users run them. KBAGKIT is the program's path.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "kit/doctor/sample_recording.h"
#include "morva/bag.h"
#include "platform/file.h"
#include "support/process.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

ProcessResult kbagkit(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), KBAGKIT);
  return runProcess(arguments);
}

class DoctorCommand : public testing::Test {
 protected:
  void SetUp() override {
    std::string bytes = sample_.bytes;
    writeFile(sound_, bytes);
    bytes[sample_.messages[3].begin + 50] ^= 1;
    writeFile(damaged_, bytes);
    bytes[4096 + 30] ^= 1;
    writeFile(nameless_, bytes);
    writeFile(foreign_, std::string(5000, 'x'));
  }

  TempDir dir_;
  SampleRecording sample_ = makeSample({.messages = 10, .maxPayloadBytes = 200});
  std::string sound_ = dir_ / "sound.kbag";
  std::string damaged_ = dir_ / "damaged.kbag";
  std::string nameless_ = dir_ / "nameless.kbag";
  std::string foreign_ = dir_ / "foreign.kbag";
  std::string out_ = dir_ / "out.kbag";
};

using SalvageCommand = DoctorCommand;

}  // namespace

TEST_F(DoctorCommand, ExitStatusIsThatOfTheWorstRecording) {
  EXPECT_EQ(kbagkit({"doctor", sound_}).exitCode, 0);
  EXPECT_EQ(kbagkit({"doctor", sound_, damaged_}).exitCode, 3);
  EXPECT_EQ(kbagkit({"doctor", foreign_, damaged_, sound_}).exitCode, 1);
  EXPECT_EQ(kbagkit({"doctor", dir_ / "missing"}).exitCode, 1);
}

TEST_F(DoctorCommand, WrongUsageIsExitStatusTwo) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"doctor"},
                                             {"doctor", sound_, "--frobnicate"},
                                             {"salvage", sound_},
                                             {"salvage"},
                                             {"salvage", sound_, out_, "third"},
                                             {"salvage", sound_, out_, "--topics", "nonsense"},
                                             {"salvage", sound_, out_, "--topics", "1=a,1=b"},
                                             {"salvage", sound_, out_, "--like"}}) {
    const ProcessResult result = kbagkit(arguments);
    EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(arguments);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, Not(IsEmpty()));
    EXPECT_FALSE(osmik::File::exists(out_));
  }
}

TEST_F(DoctorCommand, ReportsGoToStandardOutputOneAfterAnother) {
  const ProcessResult result = kbagkit({"doctor", sound_, damaged_});
  EXPECT_THAT(result.out, HasSubstr(sound_ + ": sound, "));
  EXPECT_THAT(result.out, HasSubstr(damaged_ + ": damaged, "));
  EXPECT_THAT(result.out, Not(HasSubstr("\033")));
  EXPECT_THAT(result.err, IsEmpty());
}

TEST_F(DoctorCommand, JsonIsOneDocument) {
  const ProcessResult result = kbagkit({"doctor", "--json", sound_, damaged_, foreign_});
  const auto document = nlohmann::json::parse(result.out);
  EXPECT_EQ(document.at("exit_status"), 1);
  ASSERT_EQ(document.at("bags").size(), 3U);
  EXPECT_EQ(document.at("bags").at(0).at("verdict"), "sound");
  EXPECT_EQ(document.at("bags").at(1).at("messages").at("lost"), 1);
  EXPECT_EQ(document.at("bags").at(2).at("verdict"), "unreadable");
}

TEST_F(DoctorCommand, ColourAndProgressAreShownOnATerminalAlone) {
  if (runProcess({"script", "--version"}).exitCode != 0) GTEST_SKIP() << "no program `script`";
  const auto onTerminal = [&](const std::string& setting) {
    const std::string command = setting + KBAGKIT + " doctor " + damaged_;
    return runProcess({"bash", "-c", "unset NO_COLOR; script -qec \"" + command + "\" /dev/null"})
        .out;
  };
  EXPECT_THAT(onTerminal(""), HasSubstr("\033[33mdamaged\033[0m"));
  EXPECT_THAT(onTerminal(""), HasSubstr("\rexamining " + damaged_));
  EXPECT_THAT(onTerminal("NO_COLOR=1 "), HasSubstr(damaged_ + ": damaged, "));
}

TEST_F(DoctorCommand, LostReportIsAFailure) {
  for (const std::string& bag : {sound_, damaged_}) {
    const std::string command = std::string(KBAGKIT) + " doctor " + bag + " > /dev/full";
    EXPECT_EQ(runProcess({"bash", "-c", command}).exitCode, 1);
  }
}

TEST_F(SalvageCommand, DamagedRecordingBecomesASoundOne) {
  const ProcessResult result = kbagkit({"salvage", damaged_, out_});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.out, HasSubstr("  kept       9 messages\n"));
  EXPECT_THAT(result.out, HasSubstr("  not kept   1 lost\n"));
  EXPECT_THAT(result.err, IsEmpty());
  EXPECT_EQ(kbagkit({"doctor", out_}).exitCode, 0);
  EXPECT_EQ(MorvaBag::checkAll(out_), 0);
}

TEST_F(SalvageCommand, SoundRecordingIsExitStatusZero) {
  EXPECT_EQ(kbagkit({"salvage", sound_, out_}).exitCode, 0);
  EXPECT_EQ(kbagkit({"doctor", out_}).exitCode, 0);
}

TEST_F(SalvageCommand, ExistingOutputIsRefusedWithoutForce) {
  writeFile(out_, "mine");
  const ProcessResult refused = kbagkit({"salvage", damaged_, out_});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(refused.err,
            "kbagkit: " + out_ + " exists (--force replaces it); " + out_ + " was not made\n");
  EXPECT_EQ(readFile(out_), "mine");
  EXPECT_EQ(kbagkit({"salvage", damaged_, out_, "--force"}).exitCode, 3);
  EXPECT_EQ(kbagkit({"doctor", out_}).exitCode, 0);
}

TEST_F(SalvageCommand, UnreadableFileLeavesNoOutput) {
  const ProcessResult result = kbagkit({"salvage", foreign_, out_});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("no message can be read"));
  EXPECT_FALSE(osmik::File::exists(out_));
}

TEST_F(SalvageCommand, LostNamesAreGivenOrTakenFromAnotherRecording) {
  const ProcessResult nameless = kbagkit({"salvage", nameless_, out_});
  EXPECT_EQ(nameless.exitCode, 1);
  EXPECT_THAT(nameless.err, HasSubstr("give them with --topics or --like"));
  writeFile(dir_ / "names", "1=/free\n2=/another topic\n");
  EXPECT_EQ(
      kbagkit({"salvage", "--topics", "0=/imu_like", "--topics", dir_ / "names", nameless_, out_})
          .exitCode,
      3);
  EXPECT_THAT(kbagkit({"doctor", out_}).out, HasSubstr("  /another topic  "));
  EXPECT_EQ(kbagkit({"salvage", nameless_, out_, "--like", sound_, "--force"}).exitCode, 3);
  EXPECT_THAT(kbagkit({"doctor", out_}).out, HasSubstr("  /never  "));
}

TEST_F(SalvageCommand, JsonTellsWhatWasKept) {
  const ProcessResult result = kbagkit({"salvage", damaged_, out_, "--json"});
  const auto document = nlohmann::json::parse(result.out);
  EXPECT_EQ(document.at("format"), "kbagkit salvage");
  EXPECT_EQ(document.at("version"), 1);
  EXPECT_EQ(document.at("output"), out_);
  EXPECT_EQ(document.at("written"), 9);
  EXPECT_EQ(document.at("bag").at("messages").at("lost"), 1);
  const auto failed = nlohmann::json::parse(kbagkit({"salvage", damaged_, out_, "--json"}).out);
  EXPECT_EQ(failed.at("output"), nullptr);
  EXPECT_THAT(failed.at("problem").get<std::string>(), HasSubstr("exists"));
  EXPECT_EQ(failed.at("exit_status"), 1);
}

TEST_F(SalvageCommand, FullDiskLeavesNothing) {
  const ProcessResult result = runProcess(
      {"bash", "-c",
       "trap '' XFSZ; ulimit -f 6; " + std::string(KBAGKIT) + " salvage " + sound_ + " " + out_});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("was not made"));
  EXPECT_THAT(runProcess({"ls", "-A", dir_.path()}).out,
              testing::Eq("damaged.kbag\nforeign.kbag\nnameless.kbag\nsound.kbag\n"));
}

}  // namespace morva::test
