#ifndef MORVA_MESSAGES_FRAMES_H_
#define MORVA_MESSAGES_FRAMES_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Decoded samples ("frame records"). Every one begins with its sequence number and collect
/// timestamp (us since the Unix epoch) and is shared by reference count, never copied.
namespace morva {

/// Inertial sample in SI units, in the IMU frame.
struct ImuMsg {
  double time = 0.0;                                  ///< s since the Unix epoch
  float accelX = 0.0F, accelY = 0.0F, accelZ = 0.0F;  ///< m/s^2
  float gyroX = 0.0F, gyroY = 0.0F, gyroZ = 0.0F;     ///< rad/s
};

struct ImuFrame {
  std::uint32_t seq = 0;
  std::uint64_t collectTimestamp = 0;
  std::shared_ptr<ImuMsg> imu;  ///< never null
};

struct MagneticFrame {
  std::uint32_t seq = 0;
  std::uint64_t collectTimestamp = 0;
  float magX = 0.0F, magY = 0.0F, magZ = 0.0F;                 ///< uT, as measured
  float calibMagX = 0.0F, calibMagY = 0.0F, calibMagZ = 0.0F;  ///< uT, calibrated
  double declination = 0.0;
  std::uint32_t state = 0;
};

/// Orientation of the turning motor.
struct MotorMsg {
  double time = 0.0;  ///< s since the Unix epoch
  double reserved = 0.0;
  float qx = 0.0F, qy = 0.0F, qz = 0.0F, qw = 0.0F;  ///< quaternion, order x, y, z, w
};

struct MotorFrame {
  std::uint32_t seq = 0;
  std::uint64_t collectTimestamp = 0;
  double angle = 0.0;
  std::shared_ptr<MotorMsg> motor;  ///< never null
};

/// A GNSS fix, WGS 84.
struct GnssMsg {
  double time = 0.0;  ///< s since the Unix epoch
  std::uint32_t satelliteNum = 0;
  double latitude = 0.0;    ///< degrees
  double longitude = 0.0;   ///< degrees
  double altitude = 0.0;    ///< m above the ellipsoid; less `undulation`, above the geoid
  double undulation = 0.0;  ///< m, geoid above ellipsoid
  double pdop = 0.0, hdop = 0.0, vdop = 0.0;
  double latSigma = 0.0, lonSigma = 0.0, hgtSigma = 0.0;  ///< m
  std::uint32_t frame = 0;                                ///< coordinate-frame code
  std::uint32_t status = 0;  ///< mapped: raw 1 and 2 give 3, 3 gives 4, all else 999
};

struct GnssFrame {
  std::uint32_t seq = 0;
  std::uint64_t collectTimestamp = 0;
  std::int64_t utcTime = 0;  ///< UTC time of the fix, as recorded
  std::uint32_t service = 0;
  std::uint32_t rawStatus = 0;    ///< as recorded; a negative status in two's complement
  std::shared_ptr<GnssMsg> gnss;  ///< never null
};

/// One lidar return. Laid out and aligned as the point-cloud library wants its points: position and
/// normal are blocks of four floats.
struct alignas(16) PointIRT {
  float x = 0.0F, y = 0.0F, z = 0.0F;  ///< m
  float positionPad = 1.0F;
  float normal_x = 0.0F, normal_y = 0.0F, normal_z = 0.0F;  // NOLINT(readability-identifier-naming)
  float normalPad = 0.0F;
  float intensity = 0.0F;  ///< 0 to 255
  double timestamp = 0.0;  ///< s since the Unix epoch, the point's own
  std::uint16_t ring = 0;  ///< laser channel
};

/// Points in acquisition order; unorganised, so that width is the number of points and height is 1.
struct PointCloud {
  std::vector<PointIRT> points;
  std::uint32_t width = 0;
  std::uint32_t height = 1;
};

struct PointCloudMsg {
  double time = 0.0;  ///< s since the Unix epoch
  std::uint32_t seq = 0;
  std::shared_ptr<PointCloud> cloud;  ///< never null
};

/// One lidar scan, in the lidar frame.
struct PointCloudFrame {
  std::uint32_t seq = 0;
  std::uint64_t collectTimestamp = 0;
  std::shared_ptr<PointCloudMsg> cloud;  ///< never null
};

struct ImageFrame {
  std::uint32_t seq = 0;
  std::uint64_t collectTimestamp = 0;
  std::uint32_t width = 0;   ///< pixels
  std::uint32_t height = 0;  ///< pixels
  std::uint32_t imageType = 0;
  std::string data;  ///< the encoded picture
};

struct FileFrame {
  std::uint32_t seq = 0;
  std::uint64_t collectTimestamp = 0;
  std::string name;  ///< last path component of the carried name; empty where that ends in "/"
  std::string content;
};

struct RawDataFrame {
  std::uint32_t seq = 0;
  std::uint64_t collectTimestamp = 0;
  std::string data;
};

}  // namespace morva

#endif  // MORVA_MESSAGES_FRAMES_H_
