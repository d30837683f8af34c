#ifndef MORVA_TESTS_SUPPORT_PROCESS_H_
#define MORVA_TESTS_SUPPORT_PROCESS_H_

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

/// `text` without ANSI colour sequences.
[[nodiscard]] std::string withoutColours(const std::string& text);

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_PROCESS_H_
