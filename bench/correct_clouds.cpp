// bench_correct_clouds BAG DIRECTORY: the corrected scans of a recording, as the batch task writes
// them, into DIRECTORY/lidar_points.

#include <cstdlib>

#include "bench/calibration_of.h"
#include "export/data_exporter.h"

int main(int count, char** arguments) {
  morva::MorvaBag bag;
  morva::SensorParameters params;
  if (count != 3 || bag.open(arguments[1], morva::BagMode::kRead) != 0 ||
      !morva::bench::readCalibration(bag, &params)) {
    return EXIT_FAILURE;
  }
  morva::DataExporter exporter(&bag, arguments[2], {});
  const morva::View lidar = bag.getView("/lidar", 0, -1);
  const morva::View motor = bag.getView("/lidar_to_platform", 0, -1);
  return exporter.exportCorrectedLidarData(params, lidar, motor) ? EXIT_SUCCESS : EXIT_FAILURE;
}
