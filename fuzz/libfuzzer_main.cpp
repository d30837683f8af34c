// The targets under libFuzzer: kbag_fuzz --target=NAME [libFuzzer's options] CORPUS...
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "mutator.h"
#include "process.h"
#include "target.h"

using morva::fuzz::Target;

namespace {

const Target* chosen = nullptr;

std::string_view viewOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

std::size_t copyOut(const std::string& bytes, std::uint8_t* data, std::size_t maxSize) {
  const std::size_t size = std::min(bytes.size(), maxSize);
  std::memcpy(data, bytes.data(), size);
  return size;
}

}  // namespace

// Options that begin with two dashes are not libFuzzer's.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  constexpr std::string_view kOption = "--target=";
  for (int i = 1; i < *argc; ++i) {
    const std::string_view word = (*argv)[i];
    if (word.starts_with(kOption)) chosen = morva::fuzz::findTarget(word.substr(kOption.size()));
  }
  if (chosen == nullptr) {
    std::fputs("usage: kbag_fuzz --target=NAME [OPTIONS] CORPUS...\ntargets:", stderr);
    for (const Target& target : morva::fuzz::allTargets()) std::fprintf(stderr, " %s", target.name);
    std::fputs("\n", stderr);
    std::exit(2);
  }
  morva::fuzz::prepareProcess();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  chosen->run(viewOf(data, size));
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
  return copyOut(morva::fuzz::mutated(chosen->form, viewOf(data, size), maxSize, seed), data,
                 maxSize);
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* a, std::size_t aSize,
                                                 const std::uint8_t* b, std::size_t bSize,
                                                 std::uint8_t* out, std::size_t maxSize,
                                                 unsigned seed) {
  return copyOut(
      morva::fuzz::crossed(chosen->form, viewOf(a, aSize), viewOf(b, bSize), maxSize, seed), out,
      maxSize);
}
