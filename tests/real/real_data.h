#ifndef MORVA_TESTS_REAL_REAL_DATA_H_
#define MORVA_TESTS_REAL_REAL_DATA_H_

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace morva::test {

/// Recordings of real sensors, read from files beside the checkout and put on one clock.
///
/// Times are us since the Unix epoch. Relations within one source are real; those between sources
/// are made up by a constant.
struct RealData {
  struct Imu {
    std::int64_t time;
    std::array<double, 6> values;  ///< accelerometer x, y, z (m/s^2), gyroscope x, y, z (rad/s)
  };
  struct Magnetic {
    std::int64_t time;
    std::array<double, 6> values;  ///< raw x, y, z, calibrated x, y, z (uT)
  };
  struct Gnss {
    std::int64_t time;
    std::int64_t utcTime;
    double latitude, longitude, altitude;  ///< degrees, degrees, m
  };
  struct Motor {
    std::int64_t time;
    double angle;  ///< degrees
  };
  struct Point {
    float x, y, z;            ///< m
    std::int32_t timeOffset;  ///< us after the scan's time
    std::uint16_t ring, intensity;
  };
  struct Scan {
    std::int64_t time;
    std::vector<Point> points;
  };
  struct Picture {
    std::int64_t time;
    std::string bytes;
  };
  struct Camera {
    std::uint32_t width, height;
    std::vector<Picture> pictures;
  };

  std::vector<Imu> imu;
  std::vector<Magnetic> magnetic;
  std::vector<Gnss> gnss;
  std::vector<Motor> motor;
  std::vector<Scan> scans;
  std::map<std::string, Camera> cameras;            ///< by topic
  std::map<std::string, std::string> logs;          ///< raw receiver bytes by topic
  std::map<std::string, std::string> configFiles;   ///< content by name
  std::map<std::string, std::string> projectFiles;  ///< content by name
};

/// Reads all of it from the folder of the real data.
[[nodiscard]] RealData readRealData(const std::string& folder);

}  // namespace morva::test

#endif  // MORVA_TESTS_REAL_REAL_DATA_H_
