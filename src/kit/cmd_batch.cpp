#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kit/batch/batch.h"
#include "kit/batch/merge.h"
#include "kit/batch/report.h"
#include "kit/command.h"
#include "platform/directory.h"
#include "platform/str_util.h"

namespace morva::kit {

namespace {

using batch::ProjectResult;
using osmik::StrUtil;

struct Arguments {
  batch::BatchOptions options;
  std::string shard;
  std::string mergeDir;
  bool json = false;
};

void complain(const std::string& text) { std::fprintf(stderr, "kbagkit: %s\n", text.c_str()); }

void report(const std::vector<ProjectResult>& results, bool json, int status) {
  const std::string text = json ? batch::jsonOf(results, status) : batch::tableOf(results);
  std::fputs(text.c_str(), stdout);
}

/// "2/5" is the third of five parts.
bool parseShard(const std::string& text, batch::Shard* shard) {
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) return false;
  const bool isRead = CLI::detail::lexical_cast(text.substr(0, slash), shard->index) &&
                      CLI::detail::lexical_cast(text.substr(slash + 1), shard->count);
  return isRead && shard->index < shard->count;
}

/// A manifest stands from the start, so that a shard without projects has one too.
bool prepareOutDir(const batch::BatchOptions& options) {
  if (options.outDir.empty()) return true;
  if (!osmik::Directory::createDir(options.outDir, true)) {
    complain(StrUtil::format("the folder %s cannot be made", options.outDir));
    return false;
  }
  const std::string path = batch::manifestPathIn(options.outDir, options.shard);
  batch::Manifest manifest;
  if (manifest.load(path) != batch::Manifest::Load::kMissing || manifest.save(path)) return true;
  complain(StrUtil::format("%s cannot be written", path));
  return false;
}

int runBatch(const Arguments& arguments) {
  const batch::BatchOptions& options = arguments.options;
  const batch::ProjectList list = batch::listProjects(options);
  if (!list.problem.empty()) {
    complain(list.problem);
    return kUsage;
  }
  for (const std::string& folder : list.leftOut) {
    complain(StrUtil::format("%s holds no bag and is left out", folder));
  }
  if (!prepareOutDir(options)) return kFailed;
  const std::vector<ProjectResult> results = batch::runProjects(list.projects, options);
  const int status = batch::statusOf(results);
  report(results, arguments.json, status);
  return status;
}

int runMerge(const Arguments& arguments) {
  batch::Manifest shards;
  if (const std::string problem = batch::mergeShards(arguments.mergeDir, &shards);
      !problem.empty()) {
    complain(problem);
    return kFailed;
  }
  std::vector<ProjectResult> results;
  for (const batch::ManifestEntry& entry : shards.entries()) {
    results.push_back({.entry = entry, .begun = true, .skipped = false, .recorded = true});
  }
  // A shard that was stopped is one that has not done its work; nobody interrupted this command.
  int status = batch::statusOf(results);
  if (status == kInterrupted) status = kFailed;
  report(results, arguments.json, status);
  return status;
}

/// What the parser of the options cannot know about their combination.
void checkCombination(const Arguments& arguments, batch::BatchOptions* options) {
  if (!arguments.mergeDir.empty()) return;
  if (options->folders.empty()) throw CLI::RequiredError("PROJECT_DIR");
  if (arguments.shard.empty()) return;
  if (!parseShard(arguments.shard, &options->shard)) {
    throw CLI::ValidationError("--shard", arguments.shard + " is not I/N with I from 0 to N - 1");
  }
  if (options->outDir.empty()) {
    throw CLI::ValidationError("--shard", "needs --out, where the manifests of all shards are");
  }
}

void addOptions(CLI::App* command, Arguments* arguments) {
  batch::BatchOptions& options = arguments->options;
  auto* const folders = command->add_option("PROJECT_DIR", options.folders,
                                            "project folders, or folders of project folders");
  auto* const out = command->add_option(
      "--out", options.outDir,
      "folder for the outputs, one folder each [PROJECT_DIR/output for each project]");
  auto* const device = command->add_flag("--device", options.device,
                                         "apply the recorded calibration to IMU and lidar data");
  auto* const jobs = command->add_option("--jobs", options.jobs, "projects at a time")
                         ->check(CLI::Range(1, 256))
                         ->capture_default_str();
  auto* const force =
      command->add_flag("--force", options.force, "redo projects that the manifest has as done");
  auto* const shard = command->add_option("--shard", arguments->shard,
                                          "I/N: every N-th project, from the I-th (from 0) on");
  command->add_flag("--json", arguments->json, "print the results as JSON");
  command
      ->add_option("--merge", arguments->mergeDir, "join the manifests of all shards in a folder")
      ->excludes(folders, out, device, jobs, force, shard);
}

}  // namespace

void addBatchCommand(CLI::App* program, int* exitCode) {
  CLI::App* command = program->add_subcommand(
      "batch", "Unpack project folders of recordings, and keep a record of what is done");
  const auto arguments = std::make_shared<Arguments>();
  addOptions(command, arguments.get());
  command->callback([arguments, exitCode] {
    checkCombination(*arguments, &arguments->options);
    *exitCode = arguments->mergeDir.empty() ? runBatch(*arguments) : runMerge(*arguments);
  });
}

}  // namespace morva::kit
