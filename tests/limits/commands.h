#ifndef MORVA_TESTS_LIMITS_COMMANDS_H_
#define MORVA_TESTS_LIMITS_COMMANDS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace morva::test {

/// A command, on the project "p" in a folder, with the output in "out".
struct Command {
  const char* name;
  std::function<void(const std::string& folder)> run;
};

/// All of those that take a recording.
[[nodiscard]] const std::vector<Command>& commands();
[[nodiscard]] const Command& command(const std::string& name);

/// What a run has taken, and said.
struct Cost {
  std::uint64_t bytesRead = 0;  ///< from all files in the folder
  int calls = 0;                ///< that concern files there
  std::size_t largest = 0;      ///< allocation, bytes
  std::size_t live = 0;         ///< bytes at their most, beyond those before the run
  std::string printed;
  std::vector<std::string> errors;
};

/// Runs a command on these bytes, in `folder`, which is made, and whose remains are left there.
[[nodiscard]] Cost costOf(const Command& command, const std::string& bag,
                          const std::string& folder);

}  // namespace morva::test

#endif  // MORVA_TESTS_LIMITS_COMMANDS_H_
