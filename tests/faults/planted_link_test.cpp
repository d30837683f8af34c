// Links in the output folder that cannot be removed: nothing is written through them.

#include <cerrno>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "faults/file_call_faults.h"
#include "faults/operations.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

bool writesOutputs(const Operation& operation) {
  return operation.name.starts_with("export") || operation.name.starts_with("unpack") ||
         operation.name.ends_with("Tool");
}

/// Removes what has the name, and puts a link there that leads elsewhere.
void plant(const std::string& path, const std::string& target) {
  fs::remove_all(path);
  fs::create_directories(fs::path(path).parent_path());
  fs::create_symlink(target, path);
}

class PlantedLinks : public testing::Test {
 protected:
  /// Runs everything that writes outputs, where no file and no link can be removed.
  template <typename Plant>
  void run(const Plant& plantAll) {
    int count = 0;
    for (const Operation& operation : operations()) {
      if (!writesOutputs(operation)) continue;
      SCOPED_TRACE(operation.name + " " + operation.topic);
      const TempDir dir;
      const LogCapture log;
      const std::string outside = dir / "outside";
      fs::create_directory(outside);
      fs::create_directory(dir / "work");
      operation.prepare(dir / "work");
      plantAll(dir / "work/out/", outside);
      {
        const FileCallFaults faults(
            dir.path(), {.kinds = bit(CallKind::kRemove), .error = EPERM, .goesOn = true});
        static_cast<void>(operation.run(dir / "work"));
      }
      EXPECT_TRUE(fs::is_empty(outside)) << fs::directory_iterator(outside)->path();
      ++count;
    }
    EXPECT_GT(count, 20);
  }
};

TEST_F(PlantedLinks, FoldersThatCannotBeRemovedAreNotFollowed) {
  run([](const std::string& out, const std::string& outside) {
    for (const char* folder :
         {"csv", "config", "project_data", "h264", "jpeg", "calib", "images", "lidar_points"}) {
      plant(out + folder, outside);
    }
  });
}

TEST_F(PlantedLinks, FilesThatCannotBeRemovedAreNotFollowed) {
  run([](const std::string& out, const std::string& outside) {
    for (const char* name :
         {"imu.csv", "csv/imu.csv", "csv/lidar.csv", "raw_gnss_log.txt", "config/.gitkeep",
          "config/imu.yaml", "calib/config/camera.yaml", "calib/config/imu_camera0.yaml",
          "h264/camera_left.h264", "images/camera_0/1700000000.000000.jpg",
          "images/camera_0/1700000000.000000.jpg.part", "images/camera_0/1700000000.000000.h264",
          "jpeg/camera_right/.gitkeep", "lidar_points/1700000000.000000.pcd",
          "project_data/project.json"}) {
      plant(out + name, outside + "/victim");
    }
  });
}

}  // namespace
}  // namespace morva::test
