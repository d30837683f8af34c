#ifndef MORVA_TESTS_PROOF_SIMULATED_RECORDING_H_
#define MORVA_TESTS_PROOF_SIMULATED_RECORDING_H_

#include <string>
#include <vector>

#include "export/sensor_parameters.h"
#include "morva/bag.h"
#include "support/temp_dir.h"
#include "support/truth.h"

namespace morva::test {

/// A recording that the simulator made, open for reading, with its truth.
class SimulatedRecording {
 public:
  /// @param arguments  Of the simulator, beside the path and the truth file.
  /// @throw std::runtime_error where it cannot be made or opened.
  explicit SimulatedRecording(const std::vector<std::string>& arguments);

  [[nodiscard]] MorvaBag& bag() { return bag_; }
  [[nodiscard]] const Truth& truth() const { return truth_; }
  [[nodiscard]] MorvaBag::View view(const std::string& topic) const {
    return bag_.getView(topic, 0, -1);
  }

  /// The calibration that the recording carries.
  [[nodiscard]] SensorParameters calibration() const;

  /// Runs the corrected or the plain lidar export into a folder that lives as long as this object.
  /// @return The folder of the clouds.
  [[nodiscard]] std::string exportClouds(bool corrected);
  /// Runs the corrected IMU export. @return The path of the table.
  [[nodiscard]] std::string exportCorrectedImu();

 private:
  TempDir dir_;
  MorvaBag bag_;
  Truth truth_;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_PROOF_SIMULATED_RECORDING_H_
