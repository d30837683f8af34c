#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "task/probed_tool.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::SizeIs;

class TaskLog : public testing::Test {
 protected:
  /// What the log file holds after these texts were logged.
  std::string logged(const std::vector<std::string>& texts) {
    Probed<BagTool> tool;
    EXPECT_TRUE(tool.initLog(dir_.path()));
    for (const std::string& text : texts) tool.logout(text);
    tool.StopTask();
    const std::vector<std::string> files = treeOf(dir_.path());
    EXPECT_THAT(files, SizeIs(1));
    return readFile(dir_ / files.at(0));
  }

  TempDir dir_;
};

TEST_F(TaskLog, TextsAreWrittenAsTheyStand) {
  EXPECT_EQ(logged({"one\n", "two", "three\n"}), "one\ntwothree\n");
}

TEST_F(TaskLog, EmptyTextWritesNothing) { EXPECT_EQ(logged({""}), ""); }

TEST_F(TaskLog, TextOf1023BytesIsWrittenWhole) {
  const std::string text = std::string(1022, 'x') + "\n";
  EXPECT_EQ(logged({text}), text);
}

TEST_F(TaskLog, TextOf1024BytesIsCutToThreeDotsAndAZeroByte) {
  const std::string text = std::string(1023, 'x') + "\n";
  const std::string cut = std::string(1020, 'x') + "..." + '\0';
  EXPECT_EQ(logged({text}), cut);
}

TEST_F(TaskLog, VeryLongTextIsCutTheSameWay) {
  const std::string cut = std::string(1020, 'x') + "..." + '\0';
  EXPECT_EQ(logged({std::string(100000, 'x'), "next\n"}), cut + "next\n");
}

TEST_F(TaskLog, WithoutALogFileTextsAreDropped) {
  Probed<BagTool> tool;
  tool.logout("lost\n");
  EXPECT_THAT(treeOf(dir_.path()), IsEmpty());
}

TEST_F(TaskLog, AFileOfTheSameSecondIsTruncatedAndNeverMixed) {
  // Many files in quick succession: some of them fall into one second and share a name.
  Probed<BagTool> tool;
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(tool.initLog(dir_.path()));
    tool.logout("line " + std::to_string(i) + " of the log that is in use\n");
  }
  ASSERT_TRUE(tool.initLog(dir_.path()));
  tool.logout("last\n");
  tool.StopTask();
  const std::vector<std::string> lines = taskLog(dir_.path());
  EXPECT_LT(lines.size(), 21U);
  EXPECT_EQ(lines.back(), "last");
}

TEST_F(TaskLog, LinkOfItsNameIsReplacedAndNotFollowed) {
  const std::string victim = dir_ / "victim";
  writeFile(victim, "untouched");
  const std::string logs = dir_ / "logs";
  fs::create_directory(logs);
  for (const std::string& name : comingLogNames()) fs::create_symlink(victim, logs + "/" + name);
  Probed<BagTool> tool;
  EXPECT_TRUE(tool.initLog(logs));
  tool.logout("a line\n");
  tool.StopTask();
  EXPECT_EQ(readFile(victim), "untouched");
}

TEST_F(TaskLog, LinesOfManyThreadsStayWhole) {
  Probed<BagTool> tool;
  ASSERT_TRUE(tool.initLog(dir_.path()));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&tool, i] {
      for (int n = 0; n < 200; ++n)
        tool.logout(std::string(100, static_cast<char>('a' + i)) + "\n");
    });
  }
  for (std::thread& thread : threads) thread.join();
  tool.StopTask();
  const std::vector<std::string> lines = taskLog(dir_.path());
  ASSERT_THAT(lines, SizeIs(800));
  for (const std::string& line : lines) EXPECT_EQ(line, std::string(100, line.at(0)));
}

}  // namespace
}  // namespace morva::test
