// Corrected clouds and inertial data against the world that they were simulated in.
#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include "proof/cloud_fit.h"
#include "proof/simulated_recording.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

const std::vector<std::string> kStill = {"--still",   "--noise", "0",        "--cameras", "0",
                                         "--seconds", "3",       "--points", "4000"};

std::vector<std::string> with(std::vector<std::string> arguments,
                              const std::vector<std::string>& more) {
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

}  // namespace

TEST(CorrectedClouds, OfAStillScannerLieOnTheRoomWhereUncorrectedOnesMissItByDecimetres) {
  SimulatedRecording recording(kStill);
  const Fit plain = fitOfClouds(recording.exportClouds(false), recording.truth());
  const Fit corrected = fitOfClouds(recording.exportClouds(true), recording.truth());
  plain.print("uncorrected");
  corrected.print("corrected");
  ASSERT_EQ(corrected.clouds, 30U);
  ASSERT_EQ(corrected.points, plain.points);
  ASSERT_GT(corrected.points, 100000U);
  EXPECT_GT(plain.rms(), 0.1);
  EXPECT_LT(corrected.rms(), kSharpRms);
  EXPECT_LT(corrected.worst, kSharpWorst);
}

TEST(CorrectedClouds, LoseAnElevationErrorThatTheCalibrationKnows) {
  SimulatedRecording recording(with(kStill, {"--elevation", "0.01"}));
  const Fit fit = fitOfClouds(recording.exportClouds(true), recording.truth());
  fit.print("elevation error, calibrated");
  EXPECT_LT(fit.rms(), kSharpRms);
  EXPECT_LT(fit.worst, kSharpWorst);
}

TEST(CorrectedClouds, KeepAnElevationErrorThatTheCalibrationDoesNotKnow) {
  SimulatedRecording recording(with(kStill, {"--elevation", "0.01", "--uncalibrated"}));
  const Fit fit = fitOfClouds(recording.exportClouds(true), recording.truth());
  fit.print("elevation error, uncalibrated");
  EXPECT_GT(fit.rms(), 5 * kSharpRms);
}

TEST(CorrectedClouds, OfAMovingScannerAreAsSharpAtEveryPointsOwnTime) {
  SimulatedRecording recording(
      {"--noise", "0", "--cameras", "0", "--seconds", "3", "--points", "4000"});
  const std::string folder = recording.exportClouds(true);
  const Fit fit = fitOfClouds(folder, recording.truth());
  fit.print("moving scanner");
  EXPECT_LT(fit.rms(), kSharpRms);
  EXPECT_LT(fit.worst, kSharpWorst);

  // The same with one pose for all points of a cloud must be worse, or the scanner hardly moved.
  Fit frozen;
  for (const std::string& path : pcdFiles(folder)) {
    const std::vector<PcdPoint> points = readPcd(path);
    const Eigen::Isometry3d pose = recording.truth().worldFromImu(points.front().timeS);
    for (const PcdPoint& point : points) {
      frozen.add(recording.truth().distanceToSurface(pose * point.position));
    }
  }
  frozen.print("moving scanner, one pose a cloud");
  EXPECT_GT(frozen.rms(), 5 * kSharpRms);
}

TEST(CorrectedImu, EqualsTheUndistortedSamplesWithinSinglePrecision) {
  SimulatedRecording recording({"--noise", "0", "--cameras", "0", "--points", "100"});
  std::istringstream table(readFile(recording.exportCorrectedImu()));
  std::string line;
  std::getline(table, line);
  ASSERT_EQ(line, "#timestamp gyro_x gyro_y gyro_z acc_x acc_y acc_z");
  // Samples are integers of 1e-6 units, printed with six decimals, corrected in single precision.
  constexpr double kTolerance = 5e-6;
  double worst = 0.0;
  std::size_t row = 0;
  for (; std::getline(table, line); ++row) {
    std::istringstream cells(line);
    std::string time;
    Eigen::Vector3d gyro, accel;
    cells >> time >> gyro.x() >> gyro.y() >> gyro.z() >> accel.x() >> accel.y() >> accel.z();
    ASSERT_FALSE(cells.fail()) << line;
    const Truth::PathRow& truth = recording.truth().path().at(row);
    ASSERT_NEAR(std::stod(time), static_cast<double>(truth.timeUs) / 1e6, 1e-6);
    worst = std::max({worst, (gyro - truth.angularRate).cwiseAbs().maxCoeff(),
                      (accel - truth.specificForce).cwiseAbs().maxCoeff()});
  }
  std::printf("corrected IMU: %zu samples, worst difference %.2e\n", row, worst);
  EXPECT_EQ(row, recording.truth().path().size());
  EXPECT_LT(worst, kTolerance);
}

TEST(CorrectedImu, OfAnUncalibratedRecordingStaysDistorted) {
  SimulatedRecording recording(
      {"--noise", "0", "--cameras", "0", "--points", "100", "--seconds", "1", "--uncalibrated"});
  std::istringstream table(readFile(recording.exportCorrectedImu()));
  std::string line;
  std::getline(table, line);
  std::getline(table, line);
  std::istringstream cells(line);
  std::string time;
  Eigen::Vector3d gyro, accel;
  cells >> time >> gyro.x() >> gyro.y() >> gyro.z() >> accel.x() >> accel.y() >> accel.z();
  EXPECT_GT((accel - recording.truth().path().front().specificForce).norm(), 0.01);
}

}  // namespace morva::test
