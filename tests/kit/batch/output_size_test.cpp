#include "kit/batch/output_size.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace morva::batch {
namespace {

namespace fs = std::filesystem;

TEST(MeasureOutput, CountsFilesInAllFoldersButLogAndManifests) {
  const test::TempDir dir;
  fs::create_directories(dir / "lidar_points/deep");
  fs::create_directories(dir / "log");
  test::writeFile(dir / "imu.csv", "12345");
  test::writeFile(dir / "lidar_points/a.pcd", "123");
  test::writeFile(dir / "lidar_points/deep/log", "1");
  test::writeFile(dir / "log/bagtool.log", "not counted");
  test::writeFile(dir / "manifest.json", "not counted");
  test::writeFile(dir / ".manifest.json.tmp", "not counted");
  fs::create_symlink(dir / "imu.csv", dir / "link");
  fs::create_directory_symlink(dir / "lidar_points", dir / "folder_link");
  const OutputSize size = measureOutput(dir.path());
  EXPECT_EQ(size.files, 3U);
  EXPECT_EQ(size.bytes, 9U);
}

TEST(MeasureOutput, MissingFolderHoldsNothing) {
  const test::TempDir dir;
  EXPECT_EQ(measureOutput(dir / "missing").files, 0U);
}

}  // namespace
}  // namespace morva::batch
