#ifndef MORVA_FUZZ_SEEDS_H_
#define MORVA_FUZZ_SEEDS_H_

#include <string>
#include <vector>

#include "target.h"

namespace morva::fuzz {

struct Seed {
  std::string name;
  std::string bytes;
};

/// Inputs to begin with, at most 20 KiB each: made here, the same every time but for what the
/// writer takes from the clock and from chance.
[[nodiscard]] std::vector<Seed> seedsOf(Form form);

struct SamplePayload {
  std::string topic;
  std::string payload;
};

/// A payload for every kind of topic, and some that are odd.
[[nodiscard]] const std::vector<SamplePayload>& samplePayloads();

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_SEEDS_H_
