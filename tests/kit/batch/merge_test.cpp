#include "kit/batch/merge.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/batch/project_list.h"
#include "support/temp_dir.h"

namespace morva::batch {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

class MergeShards : public testing::Test {
 protected:
  void writeShard(unsigned index, unsigned count, const std::vector<std::string>& projects) {
    Manifest manifest;
    for (const std::string& project : projects) manifest.put(entryOf(project));
    ASSERT_TRUE(manifest.save(manifestPathIn(dir_.path(), {index, count})));
  }
  [[nodiscard]] static ManifestEntry entryOf(const std::string& project) {
    ManifestEntry entry;
    entry.project = project;
    entry.outcome = Outcome::kDone;
    return entry;
  }
  [[nodiscard]] std::string merge() {
    shards_ = Manifest();
    return mergeShards(dir_.path(), &shards_);
  }
  [[nodiscard]] static std::vector<std::string> projectsOf(const Manifest& manifest) {
    std::vector<std::string> projects;
    for (const ManifestEntry& entry : manifest.entries()) projects.push_back(entry.project);
    return projects;
  }

  test::TempDir dir_;
  std::string whole_ = dir_ / "manifest.json";
  Manifest shards_;
};

TEST_F(MergeShards, EntriesOfAllShardsAreJoinedInTheirOrder) {
  writeShard(0, 3, {"/a", "/d"});
  writeShard(1, 3, {"/b"});
  writeShard(2, 3, {});
  EXPECT_EQ(merge(), "");
  Manifest manifest;
  ASSERT_EQ(manifest.load(whole_), Manifest::Load::kOk);
  EXPECT_THAT(projectsOf(manifest), ElementsAre("/a", "/b", "/d"));
  EXPECT_THAT(projectsOf(shards_), ElementsAre("/a", "/b", "/d"));
}

TEST_F(MergeShards, OtherEntriesOfTheManifestStay) {
  ASSERT_TRUE(recordInManifest(whole_, entryOf("/z")));
  writeShard(0, 1, {"/a"});
  EXPECT_EQ(merge(), "");
  Manifest manifest;
  ASSERT_EQ(manifest.load(whole_), Manifest::Load::kOk);
  EXPECT_THAT(projectsOf(manifest), ElementsAre("/a", "/z"));
  EXPECT_THAT(projectsOf(shards_), ElementsAre("/a"));
}

TEST_F(MergeShards, MissingShardIsNamedAndNothingIsWritten) {
  writeShard(0, 3, {"/a"});
  writeShard(2, 3, {"/b"});
  EXPECT_THAT(merge(), EndsWith("manifest-1-of-3.json"));
  Manifest manifest;
  EXPECT_EQ(manifest.load(whole_), Manifest::Load::kMissing);
}

TEST_F(MergeShards, FolderWithoutShardsIsAProblem) {
  EXPECT_THAT(merge(), HasSubstr("there are no manifests of shards"));
}

TEST_F(MergeShards, MissingFolderIsAProblem) {
  EXPECT_THAT(mergeShards(dir_ / "missing", &shards_), HasSubstr("no manifests of shards"));
}

TEST_F(MergeShards, ShardsOfTwoRunsAreAProblem) {
  writeShard(0, 2, {});
  writeShard(1, 2, {});
  writeShard(0, 3, {});
  EXPECT_THAT(merge(), HasSubstr("shards of 2 and of 3"));
}

TEST_F(MergeShards, BrokenShardIsAProblem) {
  writeShard(0, 2, {});
  test::writeFile(manifestPathIn(dir_.path(), {1, 2}), "{");
  EXPECT_THAT(merge(), EndsWith("manifest-1-of-2.json cannot be read"));
}

TEST_F(MergeShards, BrokenManifestIsNotReplaced) {
  writeShard(0, 1, {"/a"});
  test::writeFile(whole_, "{");
  EXPECT_THAT(merge(), EndsWith("manifest.json cannot be read"));
  EXPECT_EQ(test::readFile(whole_), "{");
}

TEST_F(MergeShards, ImpossibleNumbersOfShardsAreAProblem) {
  test::writeFile(dir_ / "manifest-0-of-99999999999999.json", "{");
  EXPECT_NE(merge(), "");
  Manifest manifest;
  EXPECT_EQ(manifest.load(whole_), Manifest::Load::kMissing);
}

}  // namespace
}  // namespace morva::batch
