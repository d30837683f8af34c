// The whole of an unpacking.
#include "export_run.h"
#include "target.h"
#include "tool/commands.h"

namespace morva::fuzz {

void runUnpack(std::string_view input) {
  // With two workers the second helps with clouds and pictures.
  const int threads = 1 + static_cast<int>(input.size() % 2);
  exportInput(input, [threads](const std::string& bag, const std::vector<std::string>& topics,
                               const std::string& outDir) {
    kbag_unpack_data_mt(bag, topics, outDir, threads);
  });
}

}  // namespace morva::fuzz
