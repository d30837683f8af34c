#ifndef MORVA_KIT_LIST_OPTIONS_H_
#define MORVA_KIT_LIST_OPTIONS_H_

#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "kit/command.h"
#include "kit/inspect/recording.h"
#include "kit/inspect/selection.h"

namespace morva::kit {

/// What the commands that list recordings are told.
struct ListArguments {
  std::vector<std::string> bags;
  inspect::Selection selection;
  bool scan = false;
  bool json = false;
};

/// Adds BAG..., --json and the options of addSelectionOptions() to a command.
void addListOptions(CLI::App* command, ListArguments* arguments);

/// Adds --topic, --from, --to and --scan.
void addSelectionOptions(CLI::App* command, ListArguments* arguments);

/// Opens a recording to be listed. @return Why it cannot be; also said on standard error.
[[nodiscard]] std::optional<inspect::Problem> openForList(const std::string& path,
                                                          const ListArguments& arguments,
                                                          inspect::Recording* recording);

}  // namespace morva::kit

#endif  // MORVA_KIT_LIST_OPTIONS_H_
