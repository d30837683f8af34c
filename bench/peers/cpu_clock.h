#ifndef MORVA_BENCH_PEERS_CPU_CLOCK_H_
#define MORVA_BENCH_PEERS_CPU_CLOCK_H_

#include <cstdio>
#include <ctime>

namespace peers {

/// CPU time of the process, for programs of which only a part is to be measured.
class CpuClock {
 public:
  /// Prints what run_table.py looks for: the seconds since the clock was made.
  void tell() const { std::printf("measured_s: %.6f\n", now() - start_); }

 private:
  static double now() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  }

  double start_ = now();
};

}  // namespace peers

#endif  // MORVA_BENCH_PEERS_CPU_CLOCK_H_
