#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "morva/bag.h"
#include "platform/arg_option.h"
#include "platform/directory.h"
#include "platform/file_path.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "platform/tracer.h"
#include "tool/commands.h"
#include "tool/console.h"

namespace morva {
namespace {

using osmik::ArgOption;
using osmik::FilePath;
using osmik::Tracer;

constexpr int kSuccess = 0;
constexpr int kFailure = -1;

const Log& mainLog() {
  static const Log log("", "main");
  return log;
}

ArgOption makeOptions() {
  ArgOption options;
  for (const char* key : {"d", "t", "dir"}) options.setMaxValues(key, 1);
  options.setMaxValues("since", 2);
  options.setMaxValues("topic", ArgOption::kAllValues);
  return options;
}

bool isPresent(const ArgOption& options, const std::string& key) {
  return options.hasOption(key) >= 0;
}

std::string firstValue(const ArgOption& options, const std::string& key,
                       const std::string& absent) {
  return options.hasOption(key) > 0 ? options[key].front() : absent;
}

// A value that is no number ends the program with the conversion's exception, here and below.
int intValue(const ArgOption& options, const std::string& key, int absent) {
  return options.hasOption(key) > 0 ? std::stoi(options[key].front()) : absent;
}

void startLog(int level) {
  Tracer& tracer = osmik::Singleton<Tracer>::getInstance();
  tracer.addSink(std::make_shared<osmik::STDSink>());
  tracer.start("/tmp/trace_level");
  tracer.setLevel(level);
}

int runReindex(const std::string& path) {
  if (MorvaBag::reindex(path) == 0) return kSuccess;
  mainLog().error("reindex bag file(%s) error!", path);
  return kFailure;
}

int runCheck(const std::string& path) {
  if (const int code = MorvaBag::checkAll(path); code != 0) {
    mainLog().error("check bag file(%s) error: %d!", path, code);
    return kFailure;
  }
  Console::line(Ink::kCyan, "[%s,L%d] check bag file(%s) ok.", "main", __LINE__, path);
  return kSuccess;
}

/// A command on an open bag, with what the command line says about it.
struct BagCommand {
  const ArgOption& options;
  const char* program;
  std::string bagPath;
  std::vector<std::string> topics;
  std::string outDir;
  int threads;
  MorvaBag bag{};
};

void runInfo(BagCommand& command) { kbag_info(&command.bag, true); }

void runDeviceInfo(BagCommand& command) { kbag_info(&command.bag, false); }

void runView(BagCommand& command) {
  const bool detail = isPresent(command.options, "detail");
  const std::vector<std::string> since = command.options["since"];
  const long start = since.empty() ? 0 : std::stoll(since[0]);
  const long duration = since.size() < 2 ? 0 : std::stoll(since[1]);
  kbag_view(&command.bag, command.topics, start, duration, detail);
}

// The topics to export; empty, after a notice, when the bag holds nothing.
std::vector<std::string> topicsToExport(const BagCommand& command) {
  const BagInfo info = command.bag.getInfo();
  if (info.topicCount == 0 || info.chunkCount == 0) {
    Console::line(Ink::kCyan, "[%s,L%d] no topic chunks.", "main", __LINE__);
    return {};
  }
  if (!command.topics.empty()) return command.topics;
  std::vector<std::string> all;
  for (const TopicInfo& topic : info.topics) all.push_back(topic.name);
  return all;
}

void runExport(BagCommand& command) {
  const std::vector<std::string> topics = topicsToExport(command);
  if (topics.empty()) return;
  const bool images = isPresent(command.options, "images");
  kbag_export_frame_mt(command.bagPath, topics, command.outDir, command.threads, images);
}

void runUnknown(BagCommand& command) { help(command.program); }

void runUnpack(BagCommand& command) {
  const std::vector<std::string> topics = topicsToExport(command);
  if (topics.empty()) return;
  kbag_unpack_data_mt(command.bagPath, topics, command.outDir, command.threads);
}

using CommandFunction = void (*)(BagCommand&);

struct CommandRow {
  std::string_view word;
  CommandFunction run;
  bool listsMessages;  ///< needs the index's entries, not only its totals
};

// The commands that export open the bag once more for each topic.
const CommandRow& findCommand(std::string_view word) {
  static constexpr CommandRow kRows[] = {
      {"info", runInfo, false},     {"pinfo", runDeviceInfo, false}, {"view", runView, true},
      {"export", runExport, false}, {"unpack", runUnpack, false},
  };
  static constexpr CommandRow kUnknown{"", runUnknown, false};
  for (const CommandRow& row : kRows) {
    if (row.word == word) return row;
  }
  return kUnknown;
}

// Every command that opens the bag: 0 whatever the command prints.
int runOnBag(const ArgOption& options, const char* program, const std::string& word,
             const std::string& path) {
  const std::string dir = firstValue(options, "dir", ".");
  if (!osmik::Directory::exists(dir)) {
    mainLog().error("workdir not exists: %s!", dir);
    return kFailure;
  }
  BagCommand command{.options = options,
                     .program = program,
                     .bagPath = FilePath(path).realPath(),
                     .topics = options["topic"],
                     .outDir = FilePath(dir).realPath(),
                     .threads = intValue(options, "t", 1)};
  const CommandRow& row = findCommand(word);
  const int code = row.listsMessages ? command.bag.open(command.bagPath, BagMode::kRead)
                                     : command.bag.openForInfo(command.bagPath);
  if (code != 0) {
    mainLog().error("open bag file(%s) error(%d)!", command.bagPath, code);
    return kFailure;
  }
  row.run(command);
  command.bag.close();
  return kSuccess;
}

int run(int argc, char** argv) {
  const char* const program = argc > 0 ? argv[0] : "kbag";
  ArgOption options = makeOptions();
  if (!options.parseArgs(argc, argv)) return kFailure;
  if (isPresent(options, "h") || isPresent(options, "help")) {
    help(program);
    return kSuccess;
  }
  if (isPresent(options, "v") || isPresent(options, "version")) {
    Console::line(Ink::kYellow, "version: %s", MorvaBag::getVersion());
    return kSuccess;
  }
  const int level = intValue(options, "d", Tracer::kInfo);
  const std::vector<std::string> words = options.getValue("");
  if (words.size() < 2) {
    help(program);
    return kSuccess;
  }
  startLog(level);
  const std::string& word = words[0];
  const std::string& path = words[1];
  if (word == "reindex") return runReindex(path);
  if (word == "check") return runCheck(path);
  return runOnBag(options, program, word, path);
}

}  // namespace
}  // namespace morva

int main(int argc, char** argv) {
  osmik::keepFreedMemory();
  const int result = morva::run(argc, argv);
  // Results that did not reach their reader are worth a line, and no more: the command itself was
  // run.
  if (!morva::Console::flush()) morva::mainLog().error("write standard output error!");
  return result;
}
