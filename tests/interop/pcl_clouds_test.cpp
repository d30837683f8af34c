// Clouds that the program wrote, read by the Point Cloud Library.
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pcl/io/pcd_io.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>

#include "kbag_msgs.pb.h"
#include "morva/bag.h"
#include "real/measured_table.h"
#include "real/real_data.h"
#include "real/real_recording.h"
#include "support/process.h"
#include "support/real_data_dir.h"
#include "support/temp_dir.h"

/// A point type as a user of the library would declare it for these clouds.
struct EIGEN_ALIGN16 CloudPoint {
  // NOLINTBEGIN(clang-diagnostic-*): the library's own
  PCL_ADD_POINT4D;
  PCL_ADD_NORMAL4D;
  // NOLINTEND(clang-diagnostic-*)
  float intensity;
  double timestamp;
  std::uint16_t ring;
  PCL_MAKE_ALIGNED_OPERATOR_NEW
};

// clang-format off
POINT_CLOUD_REGISTER_POINT_STRUCT(
    CloudPoint,
    (float, x, x)(float, y, y)(float, z, z)
    (float, normal_x, normal_x)(float, normal_y, normal_y)(float, normal_z, normal_z)
    (float, intensity, intensity)(double, timestamp, timestamp)(std::uint16_t, ring, ring))
// clang-format on

namespace morva::test {
namespace {

/// A point as it was before it was recorded, or as the bag holds it.
struct SourcePoint {
  double x, y, z;       ///< m
  std::int64_t timeUs;  ///< since the Unix epoch
  std::uint32_t ring, intensity;
};

struct SourceCloud {
  std::int64_t timeUs;  ///< since the Unix epoch
  double scale;         ///< integers per metre to which coordinates were rounded; infinite: exact
  std::vector<SourcePoint> points;
};

std::vector<SourceCloud> cloudsOf(const RealData& data) {
  std::vector<SourceCloud> clouds;
  for (const RealData::Scan& scan : data.scans) {
    SourceCloud cloud{scan.time, kPointScale, {}};
    for (const RealData::Point& point : scan.points) {
      cloud.points.push_back(
          {point.x, point.y, point.z, scan.time + point.timeOffset, point.ring, point.intensity});
    }
    clouds.push_back(cloud);
  }
  return clouds;
}

/// The stored integers, without the project's own conversion.
std::vector<SourceCloud> cloudsOf(const std::string& path) {
  std::vector<SourceCloud> clouds;
  MorvaBag bag;
  EXPECT_EQ(bag.open(path, BagMode::kRead), 0);
  for (const MsgIndex& index : bag.getView("/lidar", 0, -1).indexes) {
    std::string payload;
    protix::kbag_msgs::LidarPointMsgArray array;
    EXPECT_TRUE(bag.readMessage(index, &payload) && array.ParseFromString(payload));
    for (const auto& scan : array.msgs()) {
      const auto scale = static_cast<double>(scan.header().scale());
      const std::int64_t timeUs = scan.header().timestamp();
      SourceCloud cloud{timeUs, HUGE_VAL, {}};
      for (const auto& point : scan.points()) {
        cloud.points.push_back({static_cast<double>(point.x()) / scale,
                                static_cast<double>(point.y()) / scale,
                                static_cast<double>(point.z()) / scale,
                                timeUs + point.time_offset(), point.ring(), point.intensity()});
      }
      clouds.push_back(cloud);
    }
  }
  return clouds;
}

std::string unpackClouds(const std::string& bag, const TempDir& dir) {
  const std::string out = dir / "out";
  std::filesystem::create_directory(out);
  const ProcessResult result =
      runProcess({KBAG_PROGRAM, "unpack", bag, "--dir", out, "--topic", "/lidar"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  return out + "/lidar_points";
}

void expectFieldsAsWritten(const std::string& path) {
  pcl::PCLPointCloud2 cloud;
  ASSERT_EQ(pcl::PCDReader().read(path, cloud), 0) << path;
  EXPECT_EQ(pcl::getFieldsList(cloud), "x y z normal_x normal_y normal_z intensity timestamp ring");
}

void expectPoints(const std::string& path, const SourceCloud& source) {
  pcl::PointCloud<CloudPoint> cloud;
  ASSERT_EQ(pcl::io::loadPCDFile(path, cloud), 0) << path;
  ASSERT_EQ(cloud.size(), source.points.size()) << path;
  EXPECT_EQ(cloud.width, source.points.size());
  EXPECT_EQ(cloud.height, 1U);
  EXPECT_TRUE(cloud.is_dense);
  for (std::size_t i = 0; i < cloud.size(); ++i) {
    const CloudPoint& point = cloud[i];
    const SourcePoint& expected = source.points[i];
    ASSERT_NEAR(point.x, expected.x, singleTolerance(expected.x, source.scale)) << path << " " << i;
    ASSERT_NEAR(point.y, expected.y, singleTolerance(expected.y, source.scale)) << path << " " << i;
    ASSERT_NEAR(point.z, expected.z, singleTolerance(expected.z, source.scale)) << path << " " << i;
    ASSERT_EQ(point.getNormalVector3fMap().squaredNorm(), 0.0F);
    // Whole microseconds, which a double of this size tells apart.
    ASSERT_EQ(std::llround(point.timestamp * 1e6), expected.timeUs) << path << " " << i;
    ASSERT_EQ(point.intensity, static_cast<float>(expected.intensity)) << path << " " << i;
    ASSERT_EQ(point.ring, expected.ring) << path << " " << i;
  }
}

void expectClouds(const std::string& folder, const std::vector<SourceCloud>& clouds) {
  for (const SourceCloud& cloud : clouds) {
    const std::string path = folder + "/" + secondsText(cloud.timeUs) + ".pcd";
    expectFieldsAsWritten(path);
    expectPoints(path, cloud);
  }
}

}  // namespace

TEST(PclReader, ReadsTheCloudsOfRealData) {
  if (realDataDir().empty()) GTEST_SKIP() << "no real sensor data beside the checkout: skipped";
  const TempDir dir;
  const RealData data = readRealData(realDataDir());
  recordRealData(data, dir / "real.kbag", CompressionType::kLz4);
  const std::vector<SourceCloud> clouds = cloudsOf(data);
  ASSERT_EQ(clouds.size(), 13U);
  expectClouds(unpackClouds(dir / "real.kbag", dir), clouds);
}

TEST(PclReader, ReadsTheCloudsOfASimulatedRecording) {
  const TempDir dir;
  const std::string bag = dir / "sim.kbag";
  const ProcessResult simulated = runProcess(
      {KBAGKIT_PROGRAM, "simulate", bag, "--seconds", "1", "--points", "5000", "--cameras", "0"});
  ASSERT_EQ(simulated.exitCode, 0) << simulated.err;
  const std::vector<SourceCloud> clouds = cloudsOf(bag);
  ASSERT_EQ(clouds.size(), 10U);
  ASSERT_GT(clouds.front().points.size(), 1000U);
  expectClouds(unpackClouds(bag, dir), clouds);
}

}  // namespace morva::test
