#ifndef MORVA_BENCH_SENSOR_PAYLOAD_H_
#define MORVA_BENCH_SENSOR_PAYLOAD_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace morva::bench {

/// `size` bytes that compress about as recorded lidar points do (to 0.6 to 0.8): runs of tagged
/// variable-length integers whose values wander in small steps. The same size gives the same bytes.
inline std::string makeSensorPayload(std::size_t size) {
  std::minstd_rand random(1);  // its sequence is fixed by the standard, a distribution's is not
  std::string payload;
  payload.reserve(size + 10);
  std::int64_t values[4] = {12000, 8000, 1500, 90};
  while (payload.size() < size) {
    for (int field = 0; field < 4; ++field) {
      values[field] += static_cast<std::int64_t>(random() % 33) - 16;
      auto left = static_cast<std::uint64_t>(values[field] < 0 ? -2 * values[field] - 1
                                                               : 2 * values[field]);
      payload.push_back(static_cast<char>(((field + 1) << 3)));
      for (; left > 0x7F; left >>= 7) payload.push_back(static_cast<char>((left & 0x7F) | 0x80));
      payload.push_back(static_cast<char>(left));
    }
  }
  payload.resize(size);
  return payload;
}

}  // namespace morva::bench

#endif  // MORVA_BENCH_SENSOR_PAYLOAD_H_
