#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "kit/command.h"
#include "kit/console.h"
#include "kit/doctor/report_json.h"
#include "kit/doctor/report_text.h"
#include "kit/doctor/salvage.h"
#include "platform/interrupt.h"

namespace morva::kit {

namespace {

using doctor::SalvageOptions;
using doctor::SalvageResult;

struct Arguments {
  SalvageOptions options;
  std::vector<std::string> topics;
  bool json = false;
};

SalvageResult salvageVisibly(const SalvageOptions& options) {
  const osmik::Interrupt interrupt;
  ProgressLine line("salvaging " + options.inPath);
  return doctor::salvage(options, [&line](double done) {
    line.show(done);
    return !osmik::Interrupt::requested();
  });
}

ExitCode statusOf(const SalvageResult& result) {
  if (result.isInterrupted) return kInterrupted;
  if (!result.isDone) return kFailed;
  return result.account.verdict == doctor::Verdict::kSound ? kDone : kDoneWithLosses;
}

ExitCode run(const Arguments& arguments) {
  const SalvageResult result = salvageVisibly(arguments.options);
  const ExitCode status = statusOf(result);
  if (!result.isDone) {
    std::fprintf(stderr, "kbagkit: %s; %s was not made\n", result.problem.c_str(),
                 arguments.options.outPath.c_str());
  }
  if (arguments.json) {
    std::fputs(doctor::jsonOf(result, arguments.options, status).c_str(), stdout);
  } else if (result.isDone) {
    std::fputs(doctor::textOf(result, arguments.options).c_str(), stdout);
  }
  return status;
}

void addOptions(CLI::App* command, Arguments* arguments) {
  SalvageOptions& options = arguments->options;
  command->add_option("BAG", options.inPath, "damaged recording; it is not changed")->required();
  command->add_option("OUT", options.outPath, "recording to make; must not exist")->required();
  command
      ->add_option("--topics", arguments->topics,
                   "topic names where they are lost: ID=NAME,... or a file of such lines")
      ->allow_extra_args(false);
  command->add_option("--like", options.likePath,
                      "sound recording of the same device, whose names and device record hold here "
                      "where they are lost");
  command->add_flag("--force", options.force, "replace OUT where it exists");
  command->add_flag("--json", arguments->json, "print what was kept and lost as JSON");
}

}  // namespace

void addSalvageCommand(CLI::App* program, int* exitCode) {
  CLI::App* command = program->add_subcommand(
      "salvage", "Make a sound recording of all that a damaged one still holds");
  const auto arguments = std::make_shared<Arguments>();
  addOptions(command, arguments.get());
  command->callback([arguments, exitCode] {
    if (const std::string problem =
            doctor::readTopicNames(arguments->topics, &arguments->options.names);
        !problem.empty()) {
      throw CLI::ValidationError("--topics", problem);
    }
    *exitCode = run(*arguments);
  });
}

}  // namespace morva::kit
