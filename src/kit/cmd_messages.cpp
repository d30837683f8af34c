#include <memory>
#include <optional>
#include <string>

#include "kit/command.h"
#include "kit/console.h"
#include "kit/inspect/message_order.h"
#include "kit/inspect/report_json.h"
#include "kit/inspect/report_text.h"
#include "kit/inspect/schemas.h"
#include "kit/list_options.h"

namespace morva::kit {

namespace {

using inspect::JsonWriter;
using inspect::MessageOrder;
using inspect::Problem;
using inspect::Recording;

/// @return False where standard output takes no more.
bool list(const Recording& recording, const ListArguments& arguments) {
  MessageOrder messages(recording, arguments.selection, inspect::SelectBy::kFirstTime);
  if (!arguments.json && !print(titleText(recording) + inspect::messagesHeading())) return false;
  JsonWriter json;
  while (const auto message = messages.next()) {
    json.clear();
    if (arguments.json) writeMessage(recording, *message, &json);
    if (!print(arguments.json ? json.text() : messageText(*message))) return false;
  }
  return true;
}

ExitCode run(const ListArguments& arguments) {
  ExitCode status = kDone;
  for (const std::string& path : arguments.bags) {
    Recording recording;
    const std::optional<Problem> problem = openForList(path, arguments, &recording);
    if (!problem) {
      if (!list(recording, arguments)) break;
      continue;
    }
    status = kFailed;
    JsonWriter json;
    writeFailure(inspect::kMessagesSchema, recording, *problem, &json);
    if (arguments.json && !print(json.text())) break;
  }
  return status;
}

}  // namespace

void addMessagesCommand(CLI::App* program, int* exitCode) {
  CLI::App* command = program->add_subcommand(
      "messages", "List the messages of recordings in the order of writing");
  const auto arguments = std::make_shared<ListArguments>();
  addListOptions(command, arguments.get());
  command->callback([arguments, exitCode] { *exitCode = run(*arguments); });
}

}  // namespace morva::kit
