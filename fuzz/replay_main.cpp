// Targets without libFuzzer, so that any compiler keeps them alive: the seeds, then mutants of
// them, the same every time.
//
//   kbag_fuzz_replay TARGET [--seconds S] [--mutants N]   until one of the two is reached
//   kbag_fuzz_replay TARGET FILE...                       these inputs alone
//   kbag_fuzz_replay --count N                            0 when there are N targets
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "dice.h"
#include "mutator.h"
#include "process.h"
#include "raw_mutation.h"
#include "seeds.h"
#include "target.h"
#include "work_place.h"

namespace {

using morva::fuzz::Dice;
using morva::fuzz::Seed;
using morva::fuzz::Target;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxInputBytes = 65'536;
constexpr std::size_t kMaxPool = 300;

Dice& rawDice() {
  static Dice dice(7);
  return dice;
}

std::string lastInput;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

/// Keeps the input that ended the process, with nothing but calls that a signal handler may make.
void keepInput(int signal) {
  const int fd = ::open("kbag_fuzz_finding", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd >= 0 && ::write(fd, lastInput.data(), lastInput.size()) >= 0) {
    constexpr char kText[] = "the input is in kbag_fuzz_finding\n";
    static_cast<void>(!::write(STDERR_FILENO, kText, sizeof kText - 1));
  }
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void run(const Target& target, const std::string& input) {
  lastInput = input;
  // Memory of its own size, so that a sanitizer sees what is read beyond it.
  const std::vector<char> bytes(input.begin(), input.end());
  target.run({bytes.data(), bytes.size()});
}

struct Limits {
  double seconds = 1e9;
  std::size_t mutants = 1'000'000'000;
};

int replay(const Target& target, const Limits& limits) {
  const auto begin = Clock::now();
  const std::vector<Seed> seeds = morva::fuzz::seedsOf(target.form);
  std::vector<std::string> pool;
  for (const Seed& seed : seeds) {
    run(target, seed.bytes);
    pool.push_back(seed.bytes);
  }
  Dice dice(1);
  std::size_t mutants = 0;
  while (mutants < limits.mutants &&
         std::chrono::duration<double>(Clock::now() - begin).count() < limits.seconds) {
    const std::string& from = dice.pick(pool);
    std::string mutant =
        dice.oneIn(8)
            ? morva::fuzz::crossed(target.form, from, dice.pick(pool), kMaxInputBytes, dice.next())
            : morva::fuzz::mutated(target.form, from, kMaxInputBytes, dice.next());
    run(target, mutant);
    ++mutants;
    // Some mutants are mutated again, so that changes add up.
    if (dice.oneIn(4) && mutant.size() < 24'000) {
      if (pool.size() < kMaxPool) {
        pool.push_back(std::move(mutant));
      } else {
        pool[seeds.size() + dice.below(pool.size() - seeds.size())] = std::move(mutant);
      }
    }
  }
  std::fprintf(stderr, "%s: %zu seeds and %zu mutants\n", target.name, seeds.size(), mutants);
  return 0;
}

int usage() {
  std::fputs(
      "usage: kbag_fuzz_replay TARGET [--seconds S] [--mutants N]\n"
      "       kbag_fuzz_replay TARGET FILE...\n",
      stderr);
  return 2;
}

}  // namespace

/// Bytes changed, taken out, put in or copied.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize) {
  Dice& dice = rawDice();
  if (size == 0) {
    size = std::min<std::size_t>(maxSize, 1 + dice.below(8));
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<std::uint8_t>(dice.next());
    return size;
  }
  const std::size_t at = dice.below(size);
  const std::size_t count = std::min(size - at, 1 + dice.below(dice.oneIn(4) ? 100 : 8));
  switch (dice.below(6)) {
    case 0:
      std::memmove(data + at, data + at + count, size - at - count);
      return size - count;
    case 1: {
      const std::size_t added = std::min(count, maxSize - size);
      std::memmove(data + at + added, data + at, size - at);
      return size + added;
    }
    case 2: {
      const std::size_t to = dice.below(size);
      std::memmove(data + to, data + at, std::min(count, size - to));
      return size;
    }
    case 3: {
      const std::uint64_t number = dice.number();
      std::memcpy(data + at, &number, std::min<std::size_t>({count, size - at, sizeof number}));
      return size;
    }
    case 4:
      data[at] = static_cast<std::uint8_t>(data[at] ^ (1U << dice.below(8)));
      return size;
    default:
      data[at] = static_cast<std::uint8_t>(dice.next());
      return size;
  }
}

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() == 2 && words[0] == "--count") {
    return std::to_string(morva::fuzz::allTargets().size()) == words[1] ? 0 : 1;
  }
  const Target* const target = words.empty() ? nullptr : morva::fuzz::findTarget(words[0]);
  if (target == nullptr) return usage();
  Limits limits;
  std::vector<std::string> files;
  for (std::size_t i = 1; i < words.size(); ++i) {
    if (words[i].starts_with("--") && i + 1 == words.size()) return usage();
    if (words[i] == "--seconds") {
      limits.seconds = std::atof(words[++i].c_str());
    } else if (words[i] == "--mutants") {
      limits.mutants = std::strtoull(words[++i].c_str(), nullptr, 10);
    } else {
      files.push_back(words[i]);
    }
  }
  morva::fuzz::prepareProcess();
  std::signal(SIGABRT, keepInput);
#ifndef __SANITIZE_ADDRESS__  // which tells more about the others
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE}) std::signal(signal, keepInput);
#endif
  for (const std::string& file : files) run(*target, morva::fuzz::contentsOf(file));
  return files.empty() ? replay(*target, limits) : 0;
}
