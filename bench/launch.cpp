// bench_launch DESCRIPTOR PROGRAM [ARGUMENT...]: runs the program to its end and writes what it
// cost to the descriptor, as JSON. The peak memory that the system reports of a program is never
// below that of the process which started it: this one is small.

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kNotStarted = 127;

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

int exitStatusOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) return kNotStarted;
  const int report = std::atoi(arguments[1]);
  char** const command = arguments + 2;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addclose(&actions, report);

  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  pid_t child = 0;
  if (const int error = posix_spawnp(&child, command[0], &actions, nullptr, command, environ);
      error != 0) {
    std::fprintf(stderr, "bench_launch: %s: %s\n", command[0], std::strerror(error));
    return kNotStarted;
  }
  int status = 0;
  rusage usage{};
  while (wait4(child, &status, 0, &usage) < 0) {
    if (errno != EINTR) return kNotStarted;
  }
  const double wall = std::chrono::duration<double>(Clock::now() - start).count();
  dprintf(report, R"({"exit": %d, "cpu": %.6f, "wall": %.6f, "memory": %ld})", exitStatusOf(status),
          secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime), wall, usage.ru_maxrss * 1024);
  return 0;
}
