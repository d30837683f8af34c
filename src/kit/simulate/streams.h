#ifndef MORVA_KIT_SIMULATE_STREAMS_H_
#define MORVA_KIT_SIMULATE_STREAMS_H_

#include <memory>
#include <vector>

#include "kit/simulate/calibration.h"
#include "kit/simulate/message_stream.h"
#include "kit/simulate/scene.h"

namespace morva::sim {

using StreamPtr = std::unique_ptr<MessageStream>;

/// Every stream of a recording, in the order in which its topics are numbered. The scene outlives
/// them.
/// @return Empty after an error line when a sensor cannot be set up.
[[nodiscard]] std::vector<StreamPtr> makeStreams(const Scene& scene);

/// The streams one by one. Null after an error line when the sensor cannot be set up.
[[nodiscard]] StreamPtr makeImuStream(const Scene& scene);
[[nodiscard]] StreamPtr makeMotorStream(const Scene& scene);
[[nodiscard]] StreamPtr makeMagneticStream(const Scene& scene);
[[nodiscard]] StreamPtr makeGnssStream(const Scene& scene);
[[nodiscard]] StreamPtr makeLidarStream(const Scene& scene);
[[nodiscard]] StreamPtr makeRawGnssLog(const Scene& scene);
[[nodiscard]] StreamPtr makeRawNtripLog(const Scene& scene);
[[nodiscard]] StreamPtr makeRawPpkLog(const Scene& scene);
[[nodiscard]] StreamPtr makeConfigFiles(const Scene& scene);
[[nodiscard]] StreamPtr makeProjectFiles(const Scene& scene);
/// @param number  Of the camera in the scene's calibration.
[[nodiscard]] StreamPtr makeCameraStream(const Scene& scene, std::size_t number);

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_STREAMS_H_
