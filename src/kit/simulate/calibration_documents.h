#ifndef MORVA_KIT_SIMULATE_CALIBRATION_DOCUMENTS_H_
#define MORVA_KIT_SIMULATE_CALIBRATION_DOCUMENTS_H_

#include <string>
#include <vector>

#include <Eigen/Geometry>

#include "kit/simulate/calibration.h"

namespace morva::sim {

/// A file as it is carried in a recording.
struct Document {
  std::string name;  ///< may hold directories
  std::string content;
  bool scrambled = false;  ///< carried in the field for scrambled content
};

/// The calibration as YAML documents, as a device records them. Matrices are lists, row by row; a
/// file "extrinsic_a_b.yaml" holds the transform that takes a point's coordinates in a to those in
/// b.
[[nodiscard]] std::vector<Document> calibrationDocuments(const Calibration& calibration);

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_CALIBRATION_DOCUMENTS_H_
