// Writes the seeds of every target: fuzz_seeds DIR, into DIR/<target>/.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "seeds.h"
#include "target.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: fuzz_seeds DIR\n", stderr);
    return 2;
  }
  for (const morva::fuzz::Target& target : morva::fuzz::allTargets()) {
    const std::filesystem::path dir = std::filesystem::path(argv[1]) / target.name;
    std::filesystem::create_directories(dir);
    for (const morva::fuzz::Seed& seed : morva::fuzz::seedsOf(target.form)) {
      std::ofstream file(dir / seed.name, std::ios::binary);
      file.write(seed.bytes.data(), static_cast<std::streamsize>(seed.bytes.size()));
      if (!file.flush()) {
        std::fprintf(stderr, "fuzz_seeds: %s cannot be written\n", (dir / seed.name).c_str());
        return 1;
      }
    }
    std::printf("%s\n", target.name);
  }
  return 0;
}
