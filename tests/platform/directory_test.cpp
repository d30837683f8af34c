#include "platform/directory.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/no_rights.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;
using morva::test::readFile;
using morva::test::TempDir;
using morva::test::writeFile;
using osmik::Directory;
using Names = std::vector<std::string>;

TEST(DirectoryExists, IsTrueForDirectoriesAndLinksToThem) {
  const TempDir dir;
  writeFile(dir / "file", "x");
  fs::create_directory_symlink(dir.path(), dir / "link");
  fs::create_directory_symlink(dir / "nothing", dir / "dangling");
  EXPECT_TRUE(Directory::exists(dir.path()));
  EXPECT_TRUE(Directory::exists(dir / "link"));
  EXPECT_TRUE(Directory::exists("."));
  EXPECT_FALSE(Directory::exists(dir / "file"));
  EXPECT_FALSE(Directory::exists(dir / "dangling"));
  EXPECT_FALSE(Directory::exists(dir / "nothing"));
  EXPECT_FALSE(Directory::exists(""));
}

TEST(DirectoryCreate, RecursiveMakesMissingParents) {
  const TempDir dir;
  EXPECT_TRUE(Directory::createDir(dir / "a/b/c", true));
  EXPECT_TRUE(fs::is_directory(dir / "a/b/c"));
}

TEST(DirectoryCreate, NotRecursiveNeedsItsParent) {
  const TempDir dir;
  EXPECT_FALSE(Directory::createDir(dir / "a/b", false));
  EXPECT_TRUE(Directory::createDir(dir / "a", false));
  EXPECT_TRUE(Directory::createDir(dir / "a/b", false));
}

TEST(DirectoryCreate, ExistingDirectoryIsKeptAndGivesTrue) {
  const TempDir dir;
  fs::create_directory(dir / "a");
  writeFile(dir / "a/file", "x");
  EXPECT_TRUE(Directory::createDir(dir / "a", true));
  EXPECT_TRUE(Directory::createDir(dir / "a", false));
  EXPECT_EQ(readFile(dir / "a/file"), "x");
}

TEST(DirectoryCreate, FileInTheWayGivesFalse) {
  const TempDir dir;
  writeFile(dir / "a", "x");
  EXPECT_FALSE(Directory::createDir(dir / "a", true));
  EXPECT_FALSE(Directory::createDir(dir / "a/b", true));
  EXPECT_EQ(readFile(dir / "a"), "x");
}

TEST(DirectoryRemove, RecursiveRemovesEverythingInIt) {
  const TempDir dir;
  fs::create_directories(dir / "a/b/c");
  writeFile(dir / "a/b/c/file", "x");
  writeFile(dir / "a/.hidden", "x");
  writeFile(dir / "beside", "x");
  EXPECT_TRUE(Directory::removeDir(dir / "a", true));
  EXPECT_FALSE(fs::exists(dir / "a"));
  EXPECT_TRUE(fs::exists(dir / "beside"));
}

TEST(DirectoryRemove, NotRecursiveRemovesOnlyAnEmptyOne) {
  const TempDir dir;
  fs::create_directories(dir / "a/b");
  EXPECT_FALSE(Directory::removeDir(dir / "a", false));
  EXPECT_TRUE(fs::exists(dir / "a/b"));
  EXPECT_TRUE(Directory::removeDir(dir / "a/b", false));
  EXPECT_FALSE(fs::exists(dir / "a/b"));
}

TEST(DirectoryRemove, MissingOneGivesTrue) {
  const TempDir dir;
  EXPECT_TRUE(Directory::removeDir(dir / "a", true));
  EXPECT_TRUE(Directory::removeDir(dir / "a", false));
}

TEST(DirectoryRemove, LinksInItAreRemovedNotFollowed) {
  const TempDir dir;
  fs::create_directories(dir / "outside");
  writeFile(dir / "outside/file", "x");
  fs::create_directories(dir / "a/b");
  fs::create_directory_symlink(dir / "outside", dir / "a/b/link");
  fs::create_symlink(dir / "outside/file", dir / "a/fileLink");
  EXPECT_TRUE(Directory::removeDir(dir / "a", true));
  EXPECT_FALSE(fs::exists(dir / "a"));
  EXPECT_EQ(readFile(dir / "outside/file"), "x");
}

TEST(DirectoryRemove, LinkToADirectoryIsRemovedItself) {
  for (const bool recursive : {true, false}) {
    for (const char* name : {"link", "link/", "link//"}) {
      const TempDir dir;
      fs::create_directory(dir / "outside");
      writeFile(dir / "outside/file", "x");
      fs::create_directory_symlink(dir / "outside", dir / "link");
      EXPECT_TRUE(Directory::removeDir(dir / name, recursive)) << name;
      EXPECT_FALSE(fs::is_symlink(dir / "link")) << name;
      EXPECT_EQ(readFile(dir / "outside/file"), "x") << name;
    }
  }
}

TEST(DirectoryRemove, FileIsNoDirectoryAndStays) {
  for (const bool recursive : {true, false}) {
    const TempDir dir;
    writeFile(dir / "file", "x");
    EXPECT_FALSE(Directory::removeDir(dir / "file", recursive));
    EXPECT_EQ(readFile(dir / "file"), "x");
  }
}

TEST(DirectoryIsReadable, IsFalseWhereItsNamesCannotBeRead) {
  const morva::test::NoRights noRights;
  const TempDir dir;
  fs::create_directory(dir / "open");
  fs::create_directory(dir / "closed");
  writeFile(dir / "file", "x");
  const morva::test::WithPermissions closed(dir / "closed", morva::test::kNoAccess);
  EXPECT_TRUE(Directory::isReadable(dir / "open"));
  EXPECT_FALSE(Directory::isReadable(dir / "missing"));
  EXPECT_FALSE(Directory::isReadable(dir / "file"));
  if (!morva::test::NoRights::areInForce()) GTEST_SKIP() << "root cannot give up its rights here";
  EXPECT_FALSE(Directory::isReadable(dir / "closed"));
}

TEST(DirectoryFileList, GivesMatchingFilesInByteOrder) {
  const TempDir dir;
  for (const char* name : {"b.kbag", "a.kbag", "B.kbag", "a10.kbag", "a2.kbag", "a.kbag.index"}) {
    writeFile(dir / name, "x");
  }
  fs::create_directory(dir / "dir.kbag");
  EXPECT_EQ(Directory::getFileList(dir.path(), R"(.*\.kbag)"),
            (Names{"B.kbag", "a.kbag", "a10.kbag", "a2.kbag", "b.kbag"}));
}

TEST(DirectoryFileList, PatternMatchesWholeNames) {
  const TempDir dir;
  writeFile(dir / "abc", "x");
  EXPECT_TRUE(Directory::getFileList(dir.path(), "b").empty());
  EXPECT_EQ(Directory::getFileList(dir.path(), "a[a-z]+"), Names{"abc"});
}

TEST(DirectoryFileList, MissingDirectoryOrMalformedPatternGivesNothing) {
  const TempDir dir;
  writeFile(dir / "a", "x");
  EXPECT_TRUE(Directory::getFileList(dir / "nothing", ".*").empty());
  EXPECT_TRUE(Directory::getFileList(dir.path(), "(").empty());
}

TEST(DirectoryRemoveLinks, RemovesLinksBelowTheRootAndNothingElse) {
  const TempDir dir;
  fs::create_directories(dir / "elsewhere/config");
  fs::create_directory(dir / "root");
  fs::create_directory_symlink(dir / "elsewhere", dir / "root/calib");
  fs::create_directory_symlink(dir / "root", dir / "link");
  EXPECT_TRUE(Directory::removeLinks(dir / "link", "/calib/config"));
  EXPECT_TRUE(fs::is_symlink(dir / "link"));
  EXPECT_FALSE(fs::exists(dir / "root/calib"));
  EXPECT_TRUE(fs::exists(dir / "elsewhere/config"));
  EXPECT_TRUE(Directory::removeLinks(dir / "root", "not/there"));
}
