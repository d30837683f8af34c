#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "kit/command.h"
#include "kit/console.h"
#include "kit/inspect/report_json.h"
#include "kit/inspect/row_writer.h"
#include "kit/inspect/sample_listing.h"
#include "kit/inspect/schemas.h"
#include "kit/list_options.h"
#include "platform/ignore_result.h"

namespace morva::kit {

namespace {

using inspect::Problem;
using inspect::Recording;
using inspect::RowWriter;
using inspect::SampleListing;

struct Arguments {
  std::string bag;
  ListArguments list;
  inspect::Detail detail;
  bool csv = false;
};

ExitCode fail(const Arguments& arguments, const char* text) {
  std::fprintf(stderr, "kbagkit: %s: %s\n", printable(arguments.bag).c_str(), text);
  return kFailed;
}

std::unique_ptr<RowWriter> makeWriter(bool csv) {
  if (csv) return std::make_unique<inspect::CsvRows>();
  return std::make_unique<inspect::NdjsonRows>();
}

ExitCode run(const Arguments& arguments) {
  Recording recording;
  if (const std::optional<Problem> problem =
          openForList(arguments.bag, arguments.list, &recording)) {
    inspect::JsonWriter json;
    writeFailure(inspect::kCatSchema, recording, *problem, &json);
    if (!arguments.csv) ignoreResult(print(json.text()));  // a failure in any case
    return kFailed;
  }
  SampleListing listing(&recording, arguments.list.selection, arguments.detail);
  if (!listing.hasTopics()) return kFailed;  // which has been said
  if (arguments.csv && !listing.isOfOneKind()) {
    return fail(arguments, "a CSV table takes topics of one kind; name them with --topic");
  }
  const std::unique_ptr<RowWriter> writer = makeWriter(arguments.csv);
  return listing.print(writer.get(), print) == 0 ? kDone : kDoneWithLosses;
}

}  // namespace

void addCatCommand(CLI::App* program, int* exitCode) {
  CLI::App* command =
      program->add_subcommand("cat", "Print the samples of a recording as JSON lines or CSV");
  const auto arguments = std::make_shared<Arguments>();
  command->add_option("BAG", arguments->bag, "bag file")->required();
  addSelectionOptions(command, &arguments->list);
  command->add_flag("--csv", arguments->csv, "comma-separated values instead of JSON lines");
  command->add_flag("--points", arguments->detail.points, "lidar: every point, not only counts");
  command->add_flag("--data", arguments->detail.data,
                    "pictures and carried files: their bytes, too, as base64");
  command->callback([arguments, exitCode] { *exitCode = run(*arguments); });
}

}  // namespace morva::kit
