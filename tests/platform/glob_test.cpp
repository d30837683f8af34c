#include "platform/glob.h"

#include <gtest/gtest.h>

namespace osmik {

TEST(Glob, PatternDescribesTheWholeText) {
  EXPECT_TRUE(matchesGlob("/imu", "/imu"));
  EXPECT_FALSE(matchesGlob("/imu", "/imu2"));
  EXPECT_FALSE(matchesGlob("imu", "/imu"));
  EXPECT_TRUE(matchesGlob("", ""));
}

TEST(Glob, StarTakesAnythingSlashesIncluded) {
  EXPECT_TRUE(matchesGlob("*", "/camera_left/h264"));
  EXPECT_TRUE(matchesGlob("/camera_*", "/camera_left/h264"));
  EXPECT_TRUE(matchesGlob("*lidar*", "/livox/lidar"));
  EXPECT_FALSE(matchesGlob("/camera_*/jpeg", "/camera_left/h264"));
}

TEST(Glob, SetsAndSingleCharactersCount) {
  EXPECT_TRUE(matchesGlob("/im?", "/imu"));
  EXPECT_FALSE(matchesGlob("/im?", "/im"));
  EXPECT_TRUE(matchesGlob("/raw_[gn]*", "/raw_ntrip_log"));
  EXPECT_FALSE(matchesGlob("/raw_[!gn]*", "/raw_ntrip_log"));
  EXPECT_TRUE(matchesGlob("\\*", "*"));
  EXPECT_FALSE(matchesGlob("\\*", "x"));
}

}  // namespace osmik
