#include "kit/simulate/scene.h"

namespace morva::sim {

Eigen::Isometry3d Scene::worldFromLidarAt(double timeS) const {
  return path.poseAt(timeS) * calibration.imuFromMotor *
         Eigen::Isometry3d(motor.rotationAt(timeS)) * calibration.motorFromLidar;
}

Scene makeScene(const Options& options) {
  Random worldRandom(options.seed, "world");
  Random pathRandom(options.seed, "path");
  Random motorRandom(options.seed, "motor");
  Random calibrationRandom(options.seed, "calibration");
  return {options, World::makeRoom(&worldRandom),
          options.still ? Path::makeStill() : Path::makeWalk(&pathRandom), Motor(&motorRandom),
          makeCalibration(options, &calibrationRandom)};
}

}  // namespace morva::sim
