#ifndef MORVA_KIT_SIMULATE_GNSS_RECEIVER_H_
#define MORVA_KIT_SIMULATE_GNSS_RECEIVER_H_

#include <cstdint>

#include "kit/simulate/scene.h"

namespace morva::sim {

/// Where the world's origin lies on the WGS 84 ellipsoid.
struct GeoOrigin {
  double latitudeDeg = 48.1374;
  double longitudeDeg = 11.5755;
  double altitudeM = 563.0;    ///< above the ellipsoid
  double undulationM = 45.75;  ///< of the geoid above the ellipsoid
};

/// One solution of the receiver. The integers are coded in thousandths, as they are recorded.
struct GnssFix {
  std::int64_t timeUs = 0;
  std::int32_t status = 0;  ///< -1, 0: none; 1: single; 2: differential; 3: fixed ambiguities
  std::uint32_t satellites = 0;
  double latitudeDeg = 0.0;
  double longitudeDeg = 0.0;
  std::int64_t altitude = 0;  ///< mm above the ellipsoid
  std::int64_t undulation = 0;
  std::int64_t pdop = 0, hdop = 0, vdop = 0;
  std::int64_t latSigma = 0, lonSigma = 0, hgtSigma = 0;  ///< mm
  double speedMS = 0.0;
  double courseDeg = 0.0;  ///< clockwise from north, [0, 360)
};

/// A receiver whose quality of solution changes every second. Each fix is a function of its time
/// alone, so that the topic and the receiver's own log agree. Threads: any.
class GnssReceiver {
 public:
  static constexpr std::int64_t kScale = 1000;

  explicit GnssReceiver(const Scene& scene) : scene_(scene) {}

  [[nodiscard]] GnssFix fixAt(std::int64_t timeUs) const;
  [[nodiscard]] const GeoOrigin& origin() const { return origin_; }

 private:
  const Scene& scene_;
  GeoOrigin origin_;
};

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_GNSS_RECEIVER_H_
