#include "kit/doctor/topic_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace morva::test {
namespace {

using doctor::readTopicNames;
using doctor::TopicNames;
using testing::HasSubstr;
using testing::IsEmpty;

}  // namespace

TEST(TopicNames, WordsAndListsAreJoined) {
  TopicNames names;
  EXPECT_THAT(readTopicNames({"0=/imu, 1=/lidar,", "7=/a=b"}, &names), IsEmpty());
  EXPECT_EQ(names, (TopicNames{{0, "/imu"}, {1, "/lidar"}, {7, "/a=b"}}));
}

TEST(TopicNames, FileHasOneOnEachLine) {
  const TempDir dir;
  writeFile(dir / "names", "# of the old device\n\n0=/imu\r\n  12=/with, comma  \n");
  TopicNames names;
  EXPECT_THAT(readTopicNames({dir / "names"}, &names), IsEmpty());
  EXPECT_EQ(names, (TopicNames{{0, "/imu"}, {12, "/with, comma"}}));
}

TEST(TopicNames, MistakesAreNamed) {
  const TempDir dir;
  writeFile(dir / "names", "0=/imu\nnonsense\n");
  const std::vector<std::pair<std::string, std::string>> mistakes = {
      {"x=/imu", "\"x=/imu\" is not ID=NAME"},
      {"-1=/imu", "is not ID=NAME"},
      {"4294967296=/imu", "is not ID=NAME"},
      {"1x=/imu", "is not ID=NAME"},
      {"=/imu", "is not ID=NAME"},
      {"1=", "the name of topic 1 has not 1 to 59 characters"},
      {"1=" + std::string(60, 'x'), "has not 1 to 59 characters"},
      {"1=a,1=b", "topic 1 has two names"},
      {dir / "missing", "cannot be read"},
      {dir / "names", "names: \"nonsense\" is not ID=NAME"},
  };
  for (const auto& [word, problem] : mistakes) {
    TopicNames names;
    EXPECT_THAT(readTopicNames({word}, &names), HasSubstr(problem)) << word;
  }
}

}  // namespace morva::test
