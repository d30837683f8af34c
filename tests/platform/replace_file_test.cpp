#include "platform/replace_file.h"

#include <cerrno>
#include <filesystem>

#include <gtest/gtest.h>

#include "support/failing_file_calls.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;
using osmik::publishFile;
using osmik::replaceFile;
using Call = FailingFileCalls::Call;

class ReplaceFile : public testing::Test {
 protected:
  [[nodiscard]] long names() const {
    return std::distance(fs::directory_iterator(dir_.path()), fs::directory_iterator());
  }

  TempDir dir_;
  std::string path_ = dir_ / "record.json";
};

TEST_F(ReplaceFile, NewFileHoldsTheContentAndNothingElseIsLeft) {
  ASSERT_TRUE(replaceFile(path_, "content"));
  EXPECT_EQ(readFile(path_), "content");
  EXPECT_EQ(names(), 1);
}

TEST_F(ReplaceFile, OldContentIsReplacedWhole) {
  writeFile(path_, std::string(1000, 'x'));
  ASSERT_TRUE(replaceFile(path_, "short"));
  EXPECT_EQ(readFile(path_), "short");
  EXPECT_EQ(names(), 1);
}

TEST_F(ReplaceFile, AnyFailureLeavesTheOldContentAlone) {
  for (const Call call : {Call::kOpen, Call::kPwrite, Call::kFsync, Call::kClose}) {
    writeFile(path_, "old");
    {
      FailingFileCalls disk;
      disk.onlyFilesThatEndIn(".tmp");
      disk.fail(call);
      EXPECT_FALSE(replaceFile(path_, "new"));
      EXPECT_EQ(errno, ENOSPC);
    }
    EXPECT_EQ(readFile(path_), "old");
    EXPECT_EQ(names(), 1);
  }
}

TEST_F(ReplaceFile, LeftoverOfAKilledRunIsReplacedAndNotFollowed) {
  writeFile(dir_ / "elsewhere", "mine");
  fs::create_symlink(dir_ / "elsewhere", dir_ / ".record.json.tmp");
  ASSERT_TRUE(replaceFile(path_, "content"));
  EXPECT_EQ(readFile(path_), "content");
  EXPECT_EQ(readFile(dir_ / "elsewhere"), "mine");
  EXPECT_EQ(names(), 2);
}

TEST_F(ReplaceFile, MissingFolderFails) {
  EXPECT_FALSE(replaceFile(dir_ / "missing/record.json", "content"));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(ReplaceFile, FolderInTheWayStays) {
  fs::create_directory(path_);
  EXPECT_FALSE(replaceFile(path_, "content"));
  EXPECT_TRUE(fs::is_directory(path_));
  EXPECT_EQ(names(), 1);
}

class PublishFile : public ReplaceFile {
 protected:
  void SetUp() override { writeFile(temporary_, "new"); }

  std::string temporary_ = dir_ / "temporary";
};

TEST_F(PublishFile, FileGetsItsName) {
  ASSERT_TRUE(publishFile(temporary_, path_, false));
  EXPECT_EQ(readFile(path_), "new");
  EXPECT_EQ(names(), 1);
}

TEST_F(PublishFile, WhatHasTheNameIsReplacedOnlyWhenAllowed) {
  writeFile(path_, "old");
  EXPECT_FALSE(publishFile(temporary_, path_, false));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(readFile(path_), "old");
  EXPECT_EQ(readFile(temporary_), "new");
  ASSERT_TRUE(publishFile(temporary_, path_, true));
  EXPECT_EQ(readFile(path_), "new");
  EXPECT_EQ(names(), 1);
}

TEST_F(PublishFile, LinkThatLeadsNowhereIsInTheWayToo) {
  fs::create_symlink(dir_ / "nowhere", path_);
  EXPECT_FALSE(publishFile(temporary_, path_, false));
  EXPECT_EQ(errno, EEXIST);
  ASSERT_TRUE(publishFile(temporary_, path_, true));
  EXPECT_FALSE(fs::exists(dir_ / "nowhere"));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path_)));
}

TEST_F(PublishFile, FileThatCannotBeSyncedIsNotPublished) {
  FailingFileCalls disk;
  disk.fail(Call::kFsync);
  EXPECT_FALSE(publishFile(temporary_, path_, true));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(fs::exists(path_));
}

}  // namespace
}  // namespace morva::test
