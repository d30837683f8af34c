#include "support/truth.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "support/temp_dir.h"

namespace morva::test {
namespace {

using nlohmann::json;

Eigen::Vector3d vector3(const json& list, std::size_t first = 0) {
  return {list.at(first).get<double>(), list.at(first + 1).get<double>(),
          list.at(first + 2).get<double>()};
}

Eigen::Matrix3d matrix3(const json& list) {
  Eigen::Matrix3d matrix;
  for (int i = 0; i < 9; ++i) matrix(i / 3, i % 3) = list.at(static_cast<std::size_t>(i));
  return matrix;
}

/// Where a column stands in the rows of the path.
std::size_t column(const json& path, const std::string& name) {
  const json& names = path.at("columns");
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) throw std::runtime_error("no column " + name);
  return static_cast<std::size_t>(found - names.begin());
}

}  // namespace

Truth Truth::read(const std::string& path) {
  const json file = json::parse(readFile(path));
  Truth truth;
  for (const json& plane : file.at("world").at("planes")) {
    truth.planes_.push_back({vector3(plane.at("normal")), plane.at("offset")});
  }
  for (const json& box : file.at("world").at("boxes")) {
    truth.boxes_.push_back({vector3(box.at("center")), vector3(box.at("half_size")),
                            matrix3(box.at("world_from_box"))});
  }
  const json& rows = file.at("path");
  const std::size_t position = column(rows, "x");
  const std::size_t rotation = column(rows, "qx");
  const std::size_t force = column(rows, "ax");
  const std::size_t rate = column(rows, "gx");
  for (const json& row : rows.at("rows")) {
    PathRow entry;
    entry.timeUs = row.at(column(rows, "time_us"));
    const Eigen::Quaterniond q(row.at(rotation + 3), row.at(rotation), row.at(rotation + 1),
                               row.at(rotation + 2));
    entry.worldFromImu.linear() = q.normalized().toRotationMatrix();
    entry.worldFromImu.translation() = vector3(row, position);
    entry.specificForce = vector3(row, force);
    entry.angularRate = vector3(row, rate);
    truth.path_.push_back(entry);
  }
  if (truth.planes_.size() < 6 || truth.path_.size() < 2) {
    throw std::runtime_error("no room or no path in " + path);
  }
  return truth;
}

double Truth::distanceToBox(const Box& box, const Eigen::Vector3d& point) {
  const Eigen::Vector3d inBox = box.worldFromBox.transpose() * (point - box.center);
  const Eigen::Vector3d beyond = inBox.cwiseAbs() - box.halfSize;
  const double inside = std::min(beyond.maxCoeff(), 0.0);
  return std::abs(beyond.cwiseMax(0.0).norm() + inside);
}

double Truth::distanceToSurface(const Eigen::Vector3d& point) const {
  double nearest = std::numeric_limits<double>::infinity();
  for (const Plane& plane : planes_) {
    nearest = std::min(nearest, std::abs(plane.normal.dot(point) - plane.offset));
  }
  for (const Box& box : boxes_) nearest = std::min(nearest, distanceToBox(box, point));
  return nearest;
}

Eigen::Isometry3d Truth::worldFromImu(double timeS) const {
  const double timeUs = timeS * 1e6;
  const auto after = std::ranges::lower_bound(
      path_, timeUs, {}, [](const PathRow& row) { return static_cast<double>(row.timeUs); });
  if (after == path_.begin()) return path_.front().worldFromImu;
  if (after == path_.end()) return path_.back().worldFromImu;
  const PathRow& first = *std::prev(after);
  const double span = static_cast<double>(after->timeUs - first.timeUs);
  const double u = (timeUs - static_cast<double>(first.timeUs)) / span;
  const Eigen::Quaterniond q0(first.worldFromImu.linear());
  const Eigen::Quaterniond q1(after->worldFromImu.linear());
  Eigen::Isometry3d pose = Eigen::Isometry3d::Identity();
  pose.linear() = q0.slerp(u, q1).toRotationMatrix();
  pose.translation() =
      (1.0 - u) * first.worldFromImu.translation() + u * after->worldFromImu.translation();
  return pose;
}

}  // namespace morva::test
