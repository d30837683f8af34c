#ifndef MORVA_TESTS_BAG_ENDLESS_MESSAGES_H_
#define MORVA_TESTS_BAG_ENDLESS_MESSAGES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "bag/recording.h"

namespace morva::test {

/// An endless recording that can be made again: its i-th message depends on nothing but seed and i.
class EndlessMessages {
 public:
  explicit EndlessMessages(std::uint64_t seed) : seed_(seed) {}

  [[nodiscard]] static std::vector<std::string> topics() { return {"/imu", "/lidar", "/gnss"}; }

  /// 1 to 20,000 bytes, half of the messages to be compressed, first header times ascending.
  [[nodiscard]] Message at(std::uint64_t i) const {
    const std::uint64_t number = mix(seed_ * 0x9E3779B97F4A7C15 + i);
    Message message;
    message.topic = topics()[number % 3];
    message.firstTimeUs = static_cast<std::int64_t>(1700000000000000 + i);
    message.count = static_cast<std::uint32_t>(i + 1);
    message.compress = (number >> 8 & 1) != 0;
    message.data.resize(1 + (number >> 16) % 20000);
    std::uint64_t byte = number;
    for (char& c : message.data) {
      byte = byte * 6364136223846793005 + 1442695040888963407;
      c = static_cast<char>('a' + (byte >> 60));  // 16 letters: compressible, but not by much
    }
    return message;
  }

 private:
  static std::uint64_t mix(std::uint64_t value) {
    value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9;
    value = (value ^ value >> 27) * 0x94D049BB133111EB;
    return value ^ value >> 31;
  }

  std::uint64_t seed_;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_BAG_ENDLESS_MESSAGES_H_
