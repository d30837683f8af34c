// bench_cloud_pcl BAG DIRECTORY: the scans of a bag of "/lidar" alone as text files, written by the
// Point Cloud Library with its default number of digits.

#include <pcl/io/pcd_io.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>

#include "bench/peers/bag_walk.h"
#include "bench/peers/cloud.h"

// clang-format off
POINT_CLOUD_REGISTER_POINT_STRUCT(
    peers::Point,
    (float, x, x)(float, y, y)(float, z, z)
    (float, normal_x, normal_x)(float, normal_y, normal_y)(float, normal_z, normal_z)
    (float, intensity, intensity)(double, timestamp, timestamp)(std::uint16_t, ring, ring))
// clang-format on

int main(int count, char** arguments) {
  if (count != 3) peers::fail("usage: bench_cloud_pcl BAG DIRECTORY");
  peers::Payloads payloads(arguments[1]);
  pcl::PCDWriter writer;
  while (payloads.next()) {
    const peers::Cloud cloud = peers::parseCloud(payloads.data(), payloads.size());
    pcl::PointCloud<peers::Point> points;
    points.assign(cloud.points.begin(), cloud.points.end(),
                  static_cast<pcl::index_t>(cloud.points.size()));
    if (writer.writeASCII(peers::cloudPath(arguments[2], cloud), points) != 0) {
      peers::fail("cannot write");
    }
  }
  return 0;
}
