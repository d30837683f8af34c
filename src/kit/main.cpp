#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "kit/command.h"
#include "kit/console.h"
#include "morva/version.h"
#include "platform/memory.h"
#include "platform/pipe.h"
#include "platform/singleton.h"
#include "platform/tracer.h"

namespace {

using namespace morva::kit;

constexpr std::array kCommands = {addInfoCommand,  addTopicsCommand,  addMessagesCommand,
                                  addCatCommand,   addDoctorCommand,  addSalvageCommand,
                                  addBatchCommand, addSimulateCommand};

void logToStandardError() {
  auto& tracer = osmik::Singleton<osmik::Tracer>::getInstance();
  tracer.setLevel(osmik::Tracer::kWarning);
  tracer.addSink(standardErrorSink());
}

}  // namespace

int main(int argc, char** argv) {
  osmik::keepFreedMemory();
  osmik::outliveBrokenPipes();
  logToStandardError();
  CLI::App program(
      "Companion of kbag: shows recordings to people and scripts, examines and salvages\n"
      "damaged ones, unpacks many, and makes those of a simulated device",
      "kbagkit");
  program.set_version_flag("--version", std::string("kbagkit ") + morva::kVersion);
  program.require_subcommand(1);

  int exitCode = kFailed;
  for (const AddCommand add : kCommands) add(&program, &exitCode);
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? kDone : kUsage;  // prints the help or what is wrong
  }
  // A result that did not reach its reader is no result, unless the reader wanted no more.
  const bool isLost = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
  if (isLost && osmik::isReaderGone(osmik::StandardStream::kOutput)) return exitCode;
  if (isLost && (exitCode == kDone || exitCode == kDoneWithLosses)) return kFailed;
  return exitCode;
}
