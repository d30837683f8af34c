#include "support/process.h"

#include <cerrno>
#include <fcntl.h>
#include <regex>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/temp_dir.h"

namespace morva::test {
namespace {

// Only calls that are safe between fork and exec.
[[noreturn]] void becomeProgram(const std::vector<char*>& arguments, const std::string& directory,
                                const std::string& out, const std::string& err) {
  constexpr int kCannotRun = 127;
  const int in = ::open("/dev/null", O_RDONLY);
  const int outFile = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int errFile = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (in < 0 || outFile < 0 || errFile < 0) _exit(kCannotRun);
  ::dup2(in, STDIN_FILENO);
  ::dup2(outFile, STDOUT_FILENO);
  ::dup2(errFile, STDERR_FILENO);
  if (!directory.empty() && ::chdir(directory.c_str()) != 0) _exit(kCannotRun);
  ::execvp(arguments[0], arguments.data());
  _exit(kCannotRun);
}

pid_t start(std::vector<std::string> arguments, const std::string& directory,
            const std::string& out, const std::string& err) {
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child == 0) becomeProgram(pointers, directory, out, err);
  return child;
}

struct Ended {
  int status = 0;
  rusage usage{};
};

Ended wait(pid_t child) {
  Ended ended;
  while (::wait4(child, &ended.status, 0, &ended.usage) < 0 && errno == EINTR) {
  }
  return ended;
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& arguments, const std::string& directory) {
  // Output goes to files: a pipe that nobody empties would stop the program.
  const TempDir files;
  const std::string out = files / "out";
  const std::string err = files / "err";
  const int status = wait(start(arguments, directory, out, err)).status;
  ProcessResult result;
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  result.out = readFile(out);
  result.err = readFile(err);
  return result;
}

std::int64_t peakMemoryOf(const std::vector<std::string>& arguments) {
  const Ended ended = wait(start(arguments, {}, "/dev/null", "/dev/null"));
  if (!WIFEXITED(ended.status) || WEXITSTATUS(ended.status) != 0) {
    throw std::runtime_error("a run of " + arguments[0] + " failed");
  }
  constexpr std::int64_t kUnit = 1024;
  return std::int64_t{ended.usage.ru_maxrss} * kUnit;
}

std::string withoutColours(const std::string& text) {
  static const std::regex colour("\033\\[[0-9;]*m");
  return std::regex_replace(text, colour, "");
}

}  // namespace morva::test
