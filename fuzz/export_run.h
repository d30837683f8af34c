#ifndef MORVA_FUZZ_EXPORT_RUN_H_
#define MORVA_FUZZ_EXPORT_RUN_H_

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace morva::fuzz {

using ExportCommand = std::function<void(
    const std::string& bag, const std::vector<std::string>& topics, const std::string& outDir)>;

/// Runs a command that exports, on all topics of the input's bag, as the tool does. Ends the
/// process where anything is written outside of the output folder, or links come to be in it.
void exportInput(std::string_view input, const ExportCommand& command);

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_EXPORT_RUN_H_
