#ifndef MORVA_BENCH_PEERS_CLOUD_H_
#define MORVA_BENCH_PEERS_CLOUD_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <kbag_msgs.pb.h>

#include "bench/peers/file_parts.h"

/// Point clouds the plain way: protobuf's own parser, then a vector of points, then printf.
namespace peers {

/// Laid out as point-cloud libraries want their points.
struct alignas(16) Point {
  float x = 0.0F, y = 0.0F, z = 0.0F, positionPad = 1.0F;
  float normal_x = 0.0F, normal_y = 0.0F, normal_z = 0.0F, normalPad = 0.0F;
  float intensity = 0.0F;
  double timestamp = 0.0;
  std::uint16_t ring = 0;
};

struct Cloud {
  std::int64_t timeUs = 0;
  std::vector<Point> points;
};

/// The first scan of a serialized array of scans.
inline Cloud parseCloud(const unsigned char* payload, std::size_t size) {
  protix::kbag_msgs::LidarPointMsgArray array;
  if (!array.ParseFromArray(payload, static_cast<int>(size)) || array.msgs_size() != 1) {
    fail("no scan");
  }
  const auto& scan = array.msgs(0);
  const double factor = 1.0 / static_cast<double>(scan.header().scale());
  Cloud cloud;
  cloud.timeUs = scan.header().timestamp();
  cloud.points.reserve(static_cast<std::size_t>(scan.points_size()));
  for (const auto& point : scan.points()) {
    Point& added = cloud.points.emplace_back();
    added.x = static_cast<float>(static_cast<double>(point.x()) * factor);
    added.y = static_cast<float>(static_cast<double>(point.y()) * factor);
    added.z = static_cast<float>(static_cast<double>(point.z()) * factor);
    added.intensity = static_cast<float>(point.intensity());
    added.timestamp = static_cast<double>(cloud.timeUs + point.time_offset()) / 1e6;
    added.ring = static_cast<std::uint16_t>(point.ring());
  }
  return cloud;
}

/// "<directory>/<seconds>.pcd".
inline std::string cloudPath(const std::string& directory, const Cloud& cloud) {
  char name[64];
  std::snprintf(name, sizeof name, "/%lld.%06lld.pcd",
                static_cast<long long>(cloud.timeUs / 1000000),
                static_cast<long long>(cloud.timeUs % 1000000));
  return directory + name;
}

inline void writeRows(std::FILE* file, const std::vector<Point>& points) {
  char row[512];
  for (const Point& point : points) {
    const int size =
        std::snprintf(row, sizeof row, "%f %f %f %f %f %f %f %f %u\n", static_cast<double>(point.x),
                      static_cast<double>(point.y), static_cast<double>(point.z),
                      static_cast<double>(point.normal_x), static_cast<double>(point.normal_y),
                      static_cast<double>(point.normal_z), static_cast<double>(point.intensity),
                      point.timestamp, static_cast<unsigned>(point.ring));
    if (std::fwrite(row, 1, static_cast<std::size_t>(size), file) !=
        static_cast<std::size_t>(size)) {
      fail("cannot write");
    }
  }
}

/// Writes a cloud as text, byte for byte what `kbag unpack` writes of it.
inline void writeCloud(const std::string& directory, const Cloud& cloud) {
  constexpr std::size_t kBufferBytes = std::size_t{1} << 20U;
  std::FILE* const file = std::fopen(cloudPath(directory, cloud).c_str(), "w");
  if (file == nullptr) fail("cannot create a cloud");
  std::setvbuf(file, nullptr, _IOFBF, kBufferBytes);
  std::fprintf(file,
               "# .PCD v0.7 - Point Cloud Data file format\n"
               "VERSION 0.7\n"
               "FIELDS x y z normal_x normal_y normal_z intensity timestamp ring\n"
               "SIZE 4 4 4 4 4 4 4 8 2\n"
               "TYPE F F F F F F F F U\n"
               "COUNT 1 1 1 1 1 1 1 1 1\n"
               "WIDTH %zu\n"
               "HEIGHT 1\n"
               "VIEWPOINT 0 0 0 1 0 0 0\n"
               "POINTS %zu\n"
               "DATA ascii\n",
               cloud.points.size(), cloud.points.size());
  writeRows(file, cloud.points);
  if (std::fclose(file) != 0) fail("cannot write");
}

}  // namespace peers

#endif  // MORVA_BENCH_PEERS_CLOUD_H_
