#include "kit/batch/report.h"

#include <algorithm>
#include <filesystem>

#include "kit/batch/manifest_json.h"
#include "kit/console.h"
#include "platform/str_util.h"

namespace morva::batch {
namespace {

using osmik::StrUtil;

constexpr int kRed = 31;
constexpr int kGreen = 32;
constexpr int kYellow = 33;

int colourOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kDone:
      return kGreen;
    case Outcome::kLosses:
    case Outcome::kStopped:
      return kYellow;
    case Outcome::kFailed:
      break;
  }
  return kRed;
}

std::string wordFor(const ProjectResult& result) {
  return result.begun ? nameOf(result.entry.outcome) : "not begun";
}

std::string noteFor(const ProjectResult& result) {
  std::string note = result.entry.message;
  const auto add = [&](const std::string& text) { note += (note.empty() ? "" : "; ") + text; };
  for (const std::string& topic : result.entry.failedTopics) add(topic);
  for (const std::string& topic : result.entry.leftOutTopics) add(topic + " left out");
  if (result.skipped) add("of an earlier run");
  if (result.begun && !result.recorded) add("not in the manifest");
  return note;
}

std::string rowOf(const ProjectResult& result, int nameWidth) {
  const ManifestEntry& entry = result.entry;
  // Padded before it is coloured: the colour's codes take up no room.
  const std::string word = StrUtil::format("%-9s", wordFor(result));
  const std::string name = std::filesystem::path(entry.project).filename().string();
  std::string row =
      StrUtil::format("%s  %-*s  %7llu  %14llu  %9.1f  %s",
                      kit::coloured(word, result.begun ? colourOf(entry.outcome) : kYellow),
                      nameWidth, name, entry.files, entry.bytes, entry.seconds, noteFor(result));
  row.erase(row.find_last_not_of(' ') + 1);
  return row + "\n";
}

}  // namespace

std::string tableOf(const std::vector<ProjectResult>& results) {
  std::size_t nameWidth = 7;
  std::size_t unpacked = 0;
  for (const ProjectResult& result : results) {
    const std::string name = std::filesystem::path(result.entry.project).filename().string();
    nameWidth = std::max(nameWidth, name.size());
    const Outcome outcome = result.entry.outcome;
    if (outcome == Outcome::kDone || outcome == Outcome::kLosses) ++unpacked;
  }
  const int width = static_cast<int>(nameWidth);
  std::string table = kit::heading(StrUtil::format("%-9s  %-*s  %7s  %14s  %9s", "result", width,
                                                   "project", "files", "bytes", "seconds")) +
                      "\n";
  for (const ProjectResult& result : results) table += rowOf(result, width);
  return table + StrUtil::format("%d of %d projects are unpacked\n", unpacked, results.size());
}

std::string jsonOf(const std::vector<ProjectResult>& results, int exitStatus) {
  using Json = nlohmann::ordered_json;
  Json projects = Json::array();
  for (const ProjectResult& result : results) {
    Json entry = toJson(result.entry);
    entry["result"] = wordFor(result);
    entry["skipped"] = result.skipped;
    projects.push_back(std::move(entry));
  }
  const Json document = {{"projects", projects}, {"exit_status", exitStatus}};
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace morva::batch
