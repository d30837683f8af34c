#include "support/pcd_file.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "support/temp_dir.h"

namespace morva::test {
namespace {

constexpr const char* kLastHeaderLine = "\nDATA ascii\n";

double nextNumber(const char** at) {
  char* end = nullptr;
  const double value = std::strtod(*at, &end);
  if (end == *at) throw std::runtime_error("a row of a cloud is not a row of numbers");
  *at = end;
  return value;
}

Eigen::Vector3d nextVector(const char** at) {
  const double x = nextNumber(at);
  const double y = nextNumber(at);
  return {x, y, nextNumber(at)};
}

std::size_t pointsOfHeader(const std::string& header) {
  const std::size_t at = header.find("\nPOINTS ");
  if (at == std::string::npos) throw std::runtime_error("no POINTS in a cloud's header");
  return std::stoul(header.substr(at + 8));
}

}  // namespace

std::string pcdHeader(std::size_t points) {
  const std::string count = std::to_string(points);
  return "# .PCD v0.7 - Point Cloud Data file format\n"
         "VERSION 0.7\n"
         "FIELDS x y z normal_x normal_y normal_z intensity timestamp ring\n"
         "SIZE 4 4 4 4 4 4 4 8 2\n"
         "TYPE F F F F F F F F U\n"
         "COUNT 1 1 1 1 1 1 1 1 1\n"
         "WIDTH " +
         count +
         "\n"
         "HEIGHT 1\n"
         "VIEWPOINT 0 0 0 1 0 0 0\n"
         "POINTS " +
         count +
         "\n"
         "DATA ascii\n";
}

std::vector<PcdPoint> readPcd(const std::string& path) {
  const std::string text = readFile(path);
  const std::size_t end = text.find(kLastHeaderLine);
  if (end == std::string::npos) throw std::runtime_error("no ASCII cloud: " + path);
  const std::size_t count = pointsOfHeader(text.substr(0, end));

  std::vector<PcdPoint> points;
  const char* at = text.c_str() + end + std::string(kLastHeaderLine).size();
  const char* const last = text.c_str() + text.size();
  while (at < last) {
    PcdPoint point;
    point.position = nextVector(&at);
    point.normal = nextVector(&at);
    point.intensity = nextNumber(&at);
    point.timeS = nextNumber(&at);
    point.ring = static_cast<unsigned>(nextNumber(&at));
    if (*at++ != '\n') throw std::runtime_error("a row of a cloud is too long: " + path);
    points.push_back(point);
  }
  if (points.size() != count) throw std::runtime_error("rows and header disagree: " + path);
  return points;
}

std::vector<std::string> pcdFiles(const std::string& folder) {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".pcd") paths.push_back(entry.path().string());
  }
  std::ranges::sort(paths);
  return paths;
}

}  // namespace morva::test
