#include "kit/simulate/gnss_receiver.h"

#include <array>
#include <cmath>
#include <numbers>

#include "kit/simulate/time_base.h"

namespace morva::sim {

namespace {

constexpr double kRadian = 180.0 / std::numbers::pi;  // in degrees

struct Quality {
  std::int32_t status;
  std::uint32_t satellites;
  double sigmaM;  // horizontal, each axis
  double hdop;
};

constexpr Quality kNone = {0, 3, 25.0, 9.9};
constexpr Quality kLost = {-1, 0, 100.0, 99.9};
constexpr Quality kSingle = {1, 9, 1.2, 1.4};
constexpr Quality kDifferential = {2, 13, 0.35, 0.9};
constexpr Quality kFixed = {3, 18, 0.012, 0.6};

// One a second, again and again.
constexpr std::array<Quality, 12> kQualities = {kSingle, kDifferential, kFixed, kFixed,
                                                kFixed,  kFixed,        kFixed, kDifferential,
                                                kSingle, kNone,         kLost,  kNone};

// Degrees of latitude (x) and longitude (y) in a metre, by the ellipsoid's radii of curvature.
Eigen::Vector2d degreesPerMetre(const GeoOrigin& origin) {
  constexpr double kMajorM = 6378137.0;
  constexpr double kEccentricity2 = 6.69437999014e-3;
  const double latitude = origin.latitudeDeg / kRadian;
  const double w2 = 1.0 - kEccentricity2 * std::sin(latitude) * std::sin(latitude);
  const double meridianM = kMajorM * (1.0 - kEccentricity2) / (w2 * std::sqrt(w2));
  const double normalM = kMajorM / std::sqrt(w2);
  return {kRadian / (meridianM + origin.altitudeM),
          kRadian / ((normalM + origin.altitudeM) * std::cos(latitude))};
}

std::int64_t thousandths(double value) { return std::llround(value * 1000.0); }

}  // namespace

GnssFix GnssReceiver::fixAt(std::int64_t timeUs) const {
  const double timeS = sinceStartS(timeUs);
  Random random(scene_.options.seed, "gnss", static_cast<std::uint64_t>(timeUs));
  const auto second = static_cast<std::size_t>((timeUs - kStartUs) / 1'000'000);
  const Quality& quality = kQualities[second % kQualities.size()];
  const double heightSigmaM = 1.8 * quality.sigmaM;

  const Motion motion = scene_.path.motionAt(timeS);
  const Eigen::Vector3d antenna = motion.worldFromImu * scene_.calibration.antennaInImu;
  const Eigen::Vector2d scale = degreesPerMetre(origin_);

  GnssFix fix;
  fix.timeUs = timeUs;
  fix.status = quality.status;
  fix.satellites = quality.satellites;
  fix.latitudeDeg =
      origin_.latitudeDeg + scale.x() * (antenna.y() + quality.sigmaM * random.gaussian());
  fix.longitudeDeg =
      origin_.longitudeDeg + scale.y() * (antenna.x() + quality.sigmaM * random.gaussian());
  fix.altitude = thousandths(origin_.altitudeM + antenna.z() + heightSigmaM * random.gaussian());
  fix.undulation = thousandths(origin_.undulationM);
  fix.hdop = thousandths(quality.hdop);
  fix.vdop = thousandths(1.6 * quality.hdop);
  fix.pdop = thousandths(std::hypot(1.0, 1.6) * quality.hdop);
  fix.latSigma = thousandths(quality.sigmaM);
  fix.lonSigma = thousandths(1.1 * quality.sigmaM);
  fix.hgtSigma = thousandths(heightSigmaM);
  fix.speedMS = motion.velocity.head<2>().norm();
  const double course = kRadian * std::atan2(motion.velocity.x(), motion.velocity.y());
  fix.courseDeg = course < 0.0 ? course + 360.0 : course;
  return fix;
}

}  // namespace morva::sim
