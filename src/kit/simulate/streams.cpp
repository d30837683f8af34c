#include "kit/simulate/streams.h"

#include <array>
#include <utility>

namespace morva::sim {

std::vector<StreamPtr> makeStreams(const Scene& scene) {
  using Maker = StreamPtr (*)(const Scene&);
  static constexpr std::array<Maker, 10> kMakers = {
      makeConfigFiles, makeProjectFiles, makeImuStream,  makeMagneticStream, makeMotorStream,
      makeLidarStream, makeGnssStream,   makeRawGnssLog, makeRawNtripLog,    makeRawPpkLog,
  };
  std::vector<StreamPtr> streams;
  streams.reserve(kMakers.size() + scene.calibration.cameras.size());
  for (const Maker make : kMakers) streams.push_back(make(scene));
  for (std::size_t i = 0; i < scene.calibration.cameras.size(); ++i) {
    streams.push_back(makeCameraStream(scene, i));
  }
  for (const StreamPtr& stream : streams) {
    if (stream == nullptr) return {};
  }
  return streams;
}

}  // namespace morva::sim
