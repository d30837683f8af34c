#ifndef MORVA_TESTS_SUPPORT_TRUTH_H_
#define MORVA_TESTS_SUPPORT_TRUTH_H_

#include <cstdint>
#include <string>
#include <vector>

#include <Eigen/Geometry>

namespace morva::test {

/// What a simulated recording's truth file says: the room, and how the scanner moved in it.
class Truth {
 public:
  struct PathRow {
    std::int64_t timeUs = 0;
    Eigen::Isometry3d worldFromImu = Eigen::Isometry3d::Identity();
    Eigen::Vector3d specificForce = Eigen::Vector3d::Zero();  ///< IMU frame, m/s^2
    Eigen::Vector3d angularRate = Eigen::Vector3d::Zero();    ///< IMU frame, rad/s
  };

  /// @throw std::runtime_error or a JSON exception where the file is not what it should be.
  [[nodiscard]] static Truth read(const std::string& path);

  /// Metres from a point, in world coordinates, to the nearest surface of the room or of a box in
  /// it.
  [[nodiscard]] double distanceToSurface(const Eigen::Vector3d& point) const;

  /// Pose of the IMU at a time (s since the Unix epoch), interpolated between the path's rows.
  [[nodiscard]] Eigen::Isometry3d worldFromImu(double timeS) const;

  [[nodiscard]] const std::vector<PathRow>& path() const { return path_; }

 private:
  struct Plane {
    Eigen::Vector3d normal;
    double offset = 0.0;
  };
  struct Box {
    Eigen::Vector3d center, halfSize;
    Eigen::Matrix3d worldFromBox;
  };

  [[nodiscard]] static double distanceToBox(const Box& box, const Eigen::Vector3d& point);

  std::vector<Plane> planes_;
  std::vector<Box> boxes_;
  std::vector<PathRow> path_;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_TRUTH_H_
