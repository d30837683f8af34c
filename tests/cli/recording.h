#ifndef MORVA_TESTS_CLI_RECORDING_H_
#define MORVA_TESTS_CLI_RECORDING_H_

#include <cstdint>
#include <string>
#include <vector>

#include "morva/bag.h"

namespace morva::test {

/// When the recordings of the tests begin, us since the Unix epoch: 2023-11-14 22:13:20.
constexpr std::int64_t kStartUs = 1700000000000000;

/// A bag being written. Ends the program with a message where that fails.
class Recording {
 public:
  Recording(const std::string& path, const std::vector<std::string>& topics,
            CompressionType compression = CompressionType::kNone,
            const std::string& privateData = {});

  /// One message of `count` samples between two times, us since the Unix epoch.
  void write(const std::string& topic, std::int64_t firstUs, std::int64_t secondUs,
             const std::string& payload, std::uint32_t count = 1);
  /// The same for a message that has one time.
  void write(const std::string& topic, std::int64_t timeUs, const std::string& payload) {
    write(topic, timeUs, timeUs, payload);
  }
  void close();

 private:
  MorvaBag bag_;
  std::string path_;
};

/// Ends the program with a message on standard error.
[[noreturn]] void fail(const std::string& message);

}  // namespace morva::test

#endif  // MORVA_TESTS_CLI_RECORDING_H_
