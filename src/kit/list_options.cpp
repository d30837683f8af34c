#include "kit/list_options.h"

#include <algorithm>
#include <cstdio>

#include "kit/console.h"

namespace morva::kit {

namespace {

using inspect::TimeLimit;

void addTimeLimit(CLI::App* command, const std::string& name, const std::string& help,
                  std::optional<TimeLimit>* limit) {
  command
      ->add_option_function<std::string>(
          name,
          [name, limit](const std::string& text) {
            *limit = TimeLimit::parse(text);
            if (*limit) return;
            throw CLI::ValidationError(
                name, text +
                          " is none of: microseconds since 1970, 2023-11-14T22:13:20Z, "
                          "+1.5s (from the start), -2s (from the end)");
          },
          help)
      ->type_name("TIME");
}

/// A pattern that selects nothing is most often a mistake.
void warnOfTopics(const inspect::Recording& recording, const inspect::Selection& selection) {
  const auto isSelected = [&](const inspect::Topic& topic) {
    return selection.hasTopic(topic.name);
  };
  if (selection.topics.empty() || std::ranges::any_of(recording.topics(), isSelected)) return;
  std::fprintf(stderr, "kbagkit: %s has none of the topics\n", printable(recording.path()).c_str());
}

}  // namespace

void addSelectionOptions(CLI::App* command, ListArguments* arguments) {
  command
      ->add_option("--topic", arguments->selection.topics,
                   "only topics of this name, which may hold * ? [a-z]; may be repeated")
      ->type_name("GLOB")
      ->allow_extra_args(false);
  addTimeLimit(command, "--from", "only messages from this time on", &arguments->selection.from);
  addTimeLimit(command, "--to", "only messages before this time", &arguments->selection.to);
  command->add_flag("--scan", arguments->scan,
                    "walk through recordings that have no index (reads them whole)");
}

void addListOptions(CLI::App* command, ListArguments* arguments) {
  command->add_option("BAG", arguments->bags, "bag files")->required();
  command->add_flag("--json", arguments->json, "print JSON, one object a line");
  addSelectionOptions(command, arguments);
}

std::optional<inspect::Problem> openForList(const std::string& path, const ListArguments& arguments,
                                            inspect::Recording* recording) {
  const std::optional<inspect::Problem> problem = recording->open(path, arguments.scan);
  if (problem) {
    std::fprintf(stderr, "kbagkit: %s: %s\n", printable(path).c_str(),
                 std::string(problem->message).c_str());
  } else {
    warnOfTopics(*recording, arguments.selection);
  }
  return problem;
}

}  // namespace morva::kit
