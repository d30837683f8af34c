// The whole of an export, pictures included.
#include "export_run.h"
#include "target.h"
#include "tool/commands.h"

namespace morva::fuzz {

void runExport(std::string_view input) {
  exportInput(
      input, [](const std::string& bag, const std::vector<std::string>& topics,
                const std::string& outDir) { kbag_export_frame_mt(bag, topics, outDir, 1, true); });
}

}  // namespace morva::fuzz
