#ifndef MORVA_TESTS_SUPPORT_PCD_FILE_H_
#define MORVA_TESTS_SUPPORT_PCD_FILE_H_

#include <cstddef>
#include <string>
#include <vector>

#include <Eigen/Core>

namespace morva::test {

/// One row of an ASCII cloud.
struct PcdPoint {
  Eigen::Vector3d position, normal;
  double intensity = 0.0;
  double timeS = 0.0;
  unsigned ring = 0;
};

/// The header of an ASCII cloud, as the product writes it.
[[nodiscard]] std::string pcdHeader(std::size_t points);

/// Reads a cloud that the product wrote.
/// @throw std::runtime_error where header and rows do not agree.
[[nodiscard]] std::vector<PcdPoint> readPcd(const std::string& path);

/// Paths of the clouds in a folder, in the order of their names.
[[nodiscard]] std::vector<std::string> pcdFiles(const std::string& folder);

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_PCD_FILE_H_
