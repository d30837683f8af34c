// The one source file that includes the point-cloud library: its headers take longer to compile
// than all the others of this layer.
#include <pcl/io/pcd_io.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>

#include "export/pcd_writer.h"

// clang-format off
POINT_CLOUD_REGISTER_POINT_STRUCT(
    morva::PointIRT,
    (float, x, x)(float, y, y)(float, z, z)
    (float, normal_x, normal_x)(float, normal_y, normal_y)(float, normal_z, normal_z)
    (float, intensity, intensity)(double, timestamp, timestamp)(std::uint16_t, ring, ring))
// clang-format on

namespace morva {

std::string makePcdHeader(std::size_t points) {
  // The generator asks an empty cloud for its viewpoint alone when it is given the number of
  // points.
  return pcl::PCDWriter::generateHeader(pcl::PointCloud<PointIRT>(), static_cast<int>(points)) +
         "DATA ascii\n";
}

}  // namespace morva
