#include <memory>
#include <optional>
#include <string>

#include "kit/command.h"
#include "kit/console.h"
#include "kit/inspect/report_json.h"
#include "kit/inspect/report_text.h"
#include "kit/inspect/schemas.h"
#include "kit/inspect/summary.h"
#include "kit/list_options.h"

namespace morva::kit {

namespace {

using inspect::JsonWriter;
using inspect::Problem;
using inspect::Recording;
using inspect::Summary;
using inspect::TopicSummary;

/// How one command shows a recording.
struct Listing {
  std::string (*text)(const Recording& recording, const Summary& summary);
  void (*json)(const Recording& recording, const inspect::Selection& selection,
               const Summary& summary, JsonWriter* json);
  void (*failure)(const Recording& recording, const Problem& problem, JsonWriter* json);
};

constexpr Listing kInfo = {inspect::infoText, inspect::writeInfo, inspect::writeFailedInfo};

constexpr Listing kTopics = {
    [](const Recording& recording, const Summary& summary) {
      return titleText(recording) + topicsText(summary);
    },
    [](const Recording& recording, const inspect::Selection& /*selection*/, const Summary& summary,
       JsonWriter* json) {
      for (const TopicSummary& topic : summary.topics) writeTopic(recording, topic, json);
    },
    [](const Recording& recording, const Problem& problem, JsonWriter* json) {
      writeFailure(inspect::kTopicsSchema, recording, problem, json);
    }};

/// @return Whether the recording could be shown.
bool show(const std::string& path, const ListArguments& arguments, const Listing& listing,
          std::string* shown) {
  Recording recording;
  JsonWriter json;
  const std::optional<Problem> problem = openForList(path, arguments, &recording);
  if (problem) {
    listing.failure(recording, *problem, &json);
  } else {
    const Summary summary = summarize(recording, arguments.selection);
    listing.json(recording, arguments.selection, summary, &json);
    *shown = listing.text(recording, summary);
  }
  if (arguments.json) *shown = json.text();
  return !problem;
}

ExitCode run(const ListArguments& arguments, const Listing& listing) {
  ExitCode status = kDone;
  for (const std::string& path : arguments.bags) {
    std::string shown;
    if (!show(path, arguments, listing, &shown)) status = kFailed;
    if (!print(shown)) break;
  }
  return status;
}

void addCommand(CLI::App* program, const char* name, const char* help, const Listing& listing,
                int* exitCode) {
  CLI::App* command = program->add_subcommand(name, help);
  const auto arguments = std::make_shared<ListArguments>();
  addListOptions(command, arguments.get());
  command->callback([arguments, exitCode, listing] { *exitCode = run(*arguments, listing); });
}

}  // namespace

void addInfoCommand(CLI::App* program, int* exitCode) {
  addCommand(program, "info", "Tell what recordings hold: device, times, topics, rates, gaps",
             kInfo, exitCode);
}

void addTopicsCommand(CLI::App* program, int* exitCode) {
  addCommand(program, "topics", "List the topics of recordings", kTopics, exitCode);
}

}  // namespace morva::kit
