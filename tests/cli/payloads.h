#ifndef MORVA_TESTS_CLI_PAYLOADS_H_
#define MORVA_TESTS_CLI_PAYLOADS_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace morva::test {

/// Kinds of topics, by the messages that they hold.
enum class Kind : std::uint8_t { kImu, kMagnetic, kMotor, kGnss, kLidar, kImage, kFile, kLog };

/// The payload of one message of `frames` samples, 10 ms apart from `timeUs` on. Sequence numbers
/// begin at `seq`, and every value follows from the sequence number.
[[nodiscard]] std::string makePayload(Kind kind, std::uint32_t seq, std::int64_t timeUs,
                                      std::uint32_t frames);

/// The payload of a message that carries files, given by name and content.
[[nodiscard]] std::string makeFiles(std::int64_t timeUs,
                                    const std::vector<std::pair<std::string, std::string>>& files);

/// A lidar message of one cloud of `points` points.
[[nodiscard]] std::string makeCloud(std::uint32_t seq, std::int64_t timeUs, std::uint32_t points);

/// A device record.
[[nodiscard]] std::string makeDevice();

}  // namespace morva::test

#endif  // MORVA_TESTS_CLI_PAYLOADS_H_
