#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "kit/command.h"
#include "kit/console.h"
#include "kit/doctor/examination.h"
#include "kit/doctor/report_json.h"
#include "kit/doctor/report_text.h"
#include "platform/interrupt.h"

namespace morva::kit {

namespace {

using doctor::Account;
using doctor::Verdict;

struct Arguments {
  std::vector<std::string> bags;
  bool json = false;
};

ExitCode statusOf(const Account& account) {
  if (!account.isComplete) return kInterrupted;
  switch (account.verdict) {
    case Verdict::kSound:
      return kDone;
    case Verdict::kDamaged:
      return kDoneWithLosses;
    case Verdict::kUnreadable:
      break;
  }
  return kFailed;
}

Account examineVisibly(const std::string& path) {
  ProgressLine line("examining " + path);
  return doctor::examine(path, [&line](double done) {
    line.show(done);
    return !osmik::Interrupt::requested();
  });
}

/// The worst of two.
ExitCode worse(ExitCode a, ExitCode b) {
  for (const ExitCode code : {kInterrupted, kFailed, kDoneWithLosses}) {
    if (a == code || b == code) return code;
  }
  return kDone;
}

ExitCode run(const Arguments& arguments) {
  const osmik::Interrupt interrupt;
  std::vector<Account> accounts;
  ExitCode status = kDone;
  for (const std::string& path : arguments.bags) {
    Account account = examineVisibly(path);
    status = worse(status, statusOf(account));
    if (!account.isComplete) break;  // half an account says nothing
    if (!arguments.json) {
      std::fputs(doctor::textOf(account).c_str(), stdout);
    } else {
      accounts.push_back(std::move(account));
    }
  }
  if (status == kInterrupted) std::fputs("kbagkit: interrupted\n", stderr);
  if (arguments.json) std::fputs(doctor::jsonOf(accounts, status).c_str(), stdout);
  return status;
}

}  // namespace

void addDoctorCommand(CLI::App* program, int* exitCode) {
  CLI::App* command =
      program->add_subcommand("doctor", "Tell what damaged recordings still hold, byte by byte");
  const auto arguments = std::make_shared<Arguments>();
  command->add_option("BAG", arguments->bags, "bag files")->required();
  command->add_flag("--json", arguments->json, "print the account as JSON");
  command->callback([arguments, exitCode] { *exitCode = run(*arguments); });
}

}  // namespace morva::kit
