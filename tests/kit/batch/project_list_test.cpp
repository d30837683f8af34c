#include "kit/batch/project_list.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/no_rights.h"
#include "support/temp_dir.h"
#include "task/recordings.h"

namespace morva::batch {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

class ListProjects : public testing::Test {
 protected:
  std::string makeProject(const std::string& name) {
    std::string path = dir_ / name;
    fs::create_directories(path);
    test::writeFile(path + "/" + test::kBagName, "");
    return path;
  }
  [[nodiscard]] std::vector<std::string> paths(const std::vector<std::string>& folders) {
    options_.folders = folders;
    list_ = listProjects(options_);
    std::vector<std::string> result;
    for (const Project& project : list_.projects) result.push_back(project.path);
    return result;
  }

  test::TempDir dir_;
  BatchOptions options_;
  ProjectList list_;
};

TEST_F(ListProjects, ProjectHasItsOwnOutputAndManifest) {
  const std::string path = makeProject("p1");
  ASSERT_THAT(paths({path}), ElementsAre(path));
  EXPECT_EQ(list_.projects[0].outputPath, path + "/output");
  EXPECT_EQ(list_.projects[0].manifestPath, path + "/output/manifest.json");
  EXPECT_EQ(list_.problem, "");
}

TEST_F(ListProjects, OutFolderGetsAFolderForEachProjectAndOneManifest) {
  const std::string path = makeProject("p1");
  options_.outDir = dir_ / "out/";
  ASSERT_THAT(paths({path + "/"}), ElementsAre(path));
  EXPECT_EQ(list_.projects[0].outputPath, dir_ / "out/p1");
  EXPECT_EQ(list_.projects[0].manifestPath, dir_ / "out/manifest.json");
}

TEST_F(ListProjects, FolderOfProjectsStandsForThoseThatHoldABag) {
  const std::string p2 = makeProject("all/p2");
  const std::string p1 = makeProject("all/p1");
  fs::create_directories(dir_ / "all/empty");
  test::writeFile(dir_ / "all/file", "");
  EXPECT_THAT(paths({dir_ / "all"}), ElementsAre(p1, p2));
  EXPECT_THAT(list_.leftOut, ElementsAre(dir_ / "all/empty"));
}

TEST_F(ListProjects, ProjectsInsideAProjectAreNotLookedFor) {
  const std::string path = makeProject("p1");
  makeProject("p1/inner");
  EXPECT_THAT(paths({path}), ElementsAre(path));
}

TEST_F(ListProjects, MissingAndEmptyFoldersAreProjectsThatWillFail) {
  fs::create_directories(dir_ / "empty");
  EXPECT_THAT(paths({dir_ / "missing", dir_ / "empty"}),
              ElementsAre(dir_ / "empty", dir_ / "missing"));
  EXPECT_EQ(list_.problem, "");
}

TEST_F(ListProjects, FolderThatCannotBeReadIsAProjectThatWillFail) {
  const test::NoRights noRights;
  if (!test::NoRights::areInForce()) GTEST_SKIP() << "root cannot give up its rights here: skipped";
  const test::TempDir dir;  // of nobody
  for (const char* const name : {"p1", "p2", "empty"}) fs::create_directory(dir / name);
  test::writeFile(dir / "p1/" + test::kBagName, "");
  const test::WithPermissions closed(dir / "p2", test::kNoAccess);
  EXPECT_THAT(paths({dir.path()}), ElementsAre(dir / "p1", dir / "p2"));
  EXPECT_THAT(list_.leftOut, ElementsAre(dir / "empty"));
  EXPECT_THAT(paths({dir / "p2"}), ElementsAre(dir / "p2"));
}

TEST_F(ListProjects, OrderIsThatOfThePaths) {
  const std::string a = makeProject("a");
  const std::string b = makeProject("b");
  const std::string c = makeProject("c");
  EXPECT_THAT(paths({c, a, b}), ElementsAre(a, b, c));
}

TEST_F(ListProjects, RelativePathsAndLinksNameTheFolderItself) {
  const std::string path = makeProject("p1");
  fs::create_directory_symlink(path, dir_ / "link");
  EXPECT_THAT(paths({dir_ / "link"}), ElementsAre(path));
  EXPECT_THAT(paths({dir_ / "x/../p1/."}), ElementsAre(path));
}

TEST_F(ListProjects, SameProjectTwiceIsAProblem) {
  const std::string path = makeProject("p1");
  EXPECT_THAT(paths({path, path + "/."}), testing::SizeIs(2));
  EXPECT_EQ(list_.problem, path + " and " + path + " have the same output: " + path + "/output");
}

TEST_F(ListProjects, TwoProjectsOfOneNameAreAProblemInOneOutFolder) {
  const std::string a = makeProject("a/p");
  const std::string b = makeProject("b/p");
  EXPECT_THAT(paths({a, b}), ElementsAre(a, b));
  EXPECT_EQ(list_.problem, "");
  options_.outDir = dir_ / "out";
  EXPECT_THAT(paths({a, b}), ElementsAre(a, b));
  EXPECT_EQ(list_.problem, a + " and " + b + " have the same output: " + dir_ / "out/p");
}

TEST_F(ListProjects, ProblemIsSeenInEveryShard) {
  const std::string a = makeProject("a/p");
  const std::string b = makeProject("b/p");
  options_.outDir = dir_ / "out";
  options_.shard = {1, 2};
  EXPECT_THAT(paths({a, b}), ElementsAre(b));
  EXPECT_NE(list_.problem, "");
}

TEST_F(ListProjects, OutputInThePlaceOfTheProjectIsAProblem) {
  const std::string path = makeProject("all/p1");
  options_.outDir = dir_ / "all";
  EXPECT_THAT(paths({path}), ElementsAre(path));
  EXPECT_EQ(list_.problem, "the output of " + path + " would be the project itself");
}

TEST_F(ListProjects, ShardsTakeEveryNthProject) {
  std::vector<std::string> all;
  for (const char* name : {"a", "b", "c", "d", "e"}) all.push_back(makeProject(name));
  options_.outDir = dir_ / "out";
  options_.shard = {0, 3};
  EXPECT_THAT(paths(all), ElementsAre(all[0], all[3]));
  EXPECT_EQ(list_.projects[0].manifestPath, dir_ / "out/manifest-0-of-3.json");
  options_.shard = {1, 3};
  EXPECT_THAT(paths(all), ElementsAre(all[1], all[4]));
  options_.shard = {2, 3};
  EXPECT_THAT(paths(all), ElementsAre(all[2]));
  options_.shard = {6, 7};
  EXPECT_THAT(paths(all), IsEmpty());
}

}  // namespace
}  // namespace morva::batch
