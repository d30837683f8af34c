#include "platform/file_path.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

using morva::test::TempDir;
using osmik::FilePath;

TEST(FilePathParts, SplitAtTheLastSlash) {
  struct Case {
    const char* path;
    const char* dir;
    const char* base;
  };
  const Case cases[] = {
      {"/a/b.kbag", "/a", "b.kbag"},
      {"a/b/c", "a/b", "c"},
      {"b.kbag", ".", "b.kbag"},
      {"/b.kbag", "/", "b.kbag"},
      {"a/", "a", ""},
      {"/", "/", ""},
      {"", ".", ""},
      {"..", ".", ".."},
      {"a//b", "a/", "b"},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(FilePath(each.path).dirName(), each.dir) << each.path;
    EXPECT_EQ(FilePath(each.path).baseName(), each.base) << each.path;
  }
}

TEST(FilePathReal, ResolvesDotsAndLinks) {
  const TempDir dir;
  std::filesystem::create_directories(dir / "a/b");
  morva::test::writeFile(dir / "a/file", "x");
  std::filesystem::create_symlink(dir / "a", dir / "link");
  EXPECT_EQ(FilePath(dir / "a/b/../file").realPath(), dir / "a/file");
  EXPECT_EQ(FilePath(dir / "link/file").realPath(), dir / "a/file");
  EXPECT_EQ(FilePath(dir / "link/").realPath(), dir / "a");
}

TEST(FilePathReal, RelativePathBecomesAbsolute) {
  const std::string here = std::filesystem::current_path().string();
  EXPECT_EQ(FilePath(".").realPath(), std::filesystem::canonical(here).string());
}

TEST(FilePathReal, MissingPathStaysAsGiven) {
  const TempDir dir;
  EXPECT_EQ(FilePath(dir / "a/../b").realPath(), dir / "a/../b");
  EXPECT_EQ(FilePath("no/such/file").realPath(), "no/such/file");
  EXPECT_EQ(FilePath("").realPath(), "");
}

TEST(FilePathReal, LinkLoopStaysAsGiven) {
  const TempDir dir;
  std::filesystem::create_symlink(dir / "b", dir / "a");
  std::filesystem::create_symlink(dir / "a", dir / "b");
  EXPECT_EQ(FilePath(dir / "a").realPath(), dir / "a");
}
