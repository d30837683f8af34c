#ifndef MORVA_TESTS_SUPPORT_PROCESS_H_
#define MORVA_TESTS_SUPPORT_PROCESS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace morva::test {

struct ProcessResult {
  int exitCode = -1;  ///< -1 where a signal ended the process
  int signal = 0;
  std::string out;
  std::string err;
};

/// Runs a program to its end, without standard input.
/// @param arguments  The program's path, then its arguments.
/// @param directory  Where it runs; empty: here.
[[nodiscard]] ProcessResult runProcess(const std::vector<std::string>& arguments,
                                       const std::string& directory = {});

/// The most memory (resident set, bytes) that a program holds at a time while it runs; it must end
/// well, and what it prints is dropped. Never less than the caller holds: run it from a small
/// program.
[[nodiscard]] std::int64_t peakMemoryOf(const std::vector<std::string>& arguments);

/// `text` without ANSI colour sequences.
[[nodiscard]] std::string withoutColours(const std::string& text);

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_PROCESS_H_
