#ifndef MORVA_BENCH_INPUT_MESSAGES_H_
#define MORVA_BENCH_INPUT_MESSAGES_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <kbag_msgs.pb.h>

/// The messages that the inputs of the benchmarks are made of. Same arguments, same bytes.
namespace morva::bench {

namespace pb = protix::kbag_msgs;

inline constexpr std::int64_t kFirstUs = 1'700'000'000'000'000;
inline constexpr std::uint32_t kPointsPerScan = 75'000;

/// Serialized samples of a walking scanner's IMU, one a message.
class ImuMessages {
 public:
  /// @param samples  That next() can give.
  ImuMessages(std::size_t samples, std::int64_t periodUs);

  struct Message {
    std::string payload;
    std::int64_t timeUs = 0;
  };
  Message next();

 private:
  std::vector<pb::ImuMsg> samples_;
  std::int64_t periodUs_;
  std::size_t next_ = 0;
};

/// Serialized scans of a room, one a message: coordinates in tenths of a millimetre with the noise
/// of a real lidar, 32 rings, a time for every point.
class LidarMessages {
 public:
  LidarMessages();

  /// @param number  Scans repeat after some seconds, with other times and sequence numbers.
  std::string payload(std::uint32_t number, std::int64_t timeUs);

 private:
  std::vector<pb::LidarPointMsgArray> scans_;
};

enum class PictureNoise { kNatural, kStrong };

/// Serialized H.264 pictures of 1920 x 1080 pixels, one a message, each decodable alone.
/// Empty where this machine has no encoder.
std::vector<std::string> cameraPayloads(std::size_t count, PictureNoise noise);

/// A serialized image message whose `size` bytes of picture are noise behind a start code.
std::string opaquePicture(std::uint32_t number, std::int64_t timeUs, std::size_t size);
/// A serialized log message of `size` bytes of noise.
std::string opaqueLog(std::uint32_t number, std::int64_t timeUs, std::size_t size);
/// `size` bytes that no codec makes smaller.
std::string noise(std::uint32_t number, std::size_t size);

}  // namespace morva::bench

#endif  // MORVA_BENCH_INPUT_MESSAGES_H_
