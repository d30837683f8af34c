#ifndef MORVA_KIT_COMMAND_H_
#define MORVA_KIT_COMMAND_H_

#include <CLI/CLI.hpp>

namespace morva::kit {

/// What every subcommand ends with.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,
  kUsage = 2,
  kDoneWithLosses = 3,  ///< the result is there, but something of the input could not be used
  kInterrupted = 130,   ///< Ctrl-C
};

/// Adds a subcommand to the program: its options, and a callback that runs it and leaves an
/// ExitCode in `exitCode`, which outlives the program's parsing. Results go to standard output,
/// everything else to standard error.
using AddCommand = void (*)(CLI::App* program, int* exitCode);

void addBatchCommand(CLI::App* program, int* exitCode);
void addCatCommand(CLI::App* program, int* exitCode);
void addDoctorCommand(CLI::App* program, int* exitCode);
void addInfoCommand(CLI::App* program, int* exitCode);
void addMessagesCommand(CLI::App* program, int* exitCode);
void addSalvageCommand(CLI::App* program, int* exitCode);
void addSimulateCommand(CLI::App* program, int* exitCode);
void addTopicsCommand(CLI::App* program, int* exitCode);

}  // namespace morva::kit

#endif  // MORVA_KIT_COMMAND_H_
