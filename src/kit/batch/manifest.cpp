#include "kit/batch/manifest.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "kit/batch/manifest_json.h"
#include "platform/dir_lock.h"
#include "platform/file.h"
#include "platform/file_path.h"
#include "platform/ignore_result.h"
#include "platform/log.h"
#include "platform/replace_file.h"

namespace morva::batch {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFormat = "kbagkit batch manifest";
constexpr int kVersion = 1;

constexpr std::array<std::pair<Outcome, const char*>, 4> kOutcomes = {{
    {Outcome::kDone, "done"},
    {Outcome::kLosses, "losses"},
    {Outcome::kFailed, "failed"},
    {Outcome::kStopped, "stopped"},
}};

/// Takes the value of a key where it has the type that it should have.
template <typename T>
bool take(const Json& object, const char* key, T* value) {
  const auto found = object.find(key);
  if (found == object.end()) return false;
  if constexpr (std::is_same_v<T, bool>) {
    if (!found->is_boolean()) return false;
  } else if constexpr (std::is_unsigned_v<T>) {
    if (!found->is_number_unsigned()) return false;
  } else if constexpr (std::is_integral_v<T>) {
    if (!found->is_number_integer()) return false;
  } else if constexpr (std::is_floating_point_v<T>) {
    if (!found->is_number()) return false;
  } else {
    if (!found->is_string()) return false;
  }
  *value = found->template get<T>();
  return true;
}

bool takeOutcome(const Json& object, Outcome* outcome) {
  std::string name;
  if (!take(object, "result", &name)) return false;
  for (const auto& [value, text] : kOutcomes) {
    if (name != text) continue;
    *outcome = value;
    return true;
  }
  return false;
}

bool takeTopics(const Json& object, const char* key, std::vector<std::string>* topics) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_array()) return false;
  for (const Json& topic : *found) {
    if (!topic.is_string()) return false;
    topics->push_back(topic.get<std::string>());
  }
  return true;
}

std::optional<ManifestEntry> fromJson(const Json& object) {
  if (!object.is_object()) return std::nullopt;
  ManifestEntry entry;
  std::string mode;
  const bool isWhole =
      take(object, "project", &entry.project) && take(object, "output", &entry.output) &&
      take(object, "mode", &mode) && take(object, "bag", &entry.bag) &&
      take(object, "bag_bytes", &entry.bagBytes) && take(object, "bag_time_us", &entry.bagTimeUs) &&
      takeOutcome(object, &entry.outcome) && take(object, "error_code", &entry.errorCode) &&
      take(object, "check_code", &entry.checkCode) &&
      takeTopics(object, "failed_topics", &entry.failedTopics) &&
      takeTopics(object, "left_out_topics", &entry.leftOutTopics) &&
      take(object, "message", &entry.message) && take(object, "files", &entry.files) &&
      take(object, "bytes", &entry.bytes) && take(object, "seconds", &entry.seconds);
  entry.device = mode == "device";
  return isWhole ? std::optional(std::move(entry)) : std::nullopt;
}

std::optional<std::string> readText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return file.bad() ? std::nullopt : std::optional(std::move(text));
}

}  // namespace

const char* nameOf(Outcome outcome) {
  return std::ranges::find(kOutcomes, outcome, &std::pair<Outcome, const char*>::first)->second;
}

Json toJson(const ManifestEntry& entry) {
  return {{"project", entry.project},
          {"output", entry.output},
          {"mode", entry.device ? "device" : "plain"},
          {"bag", entry.bag},
          {"bag_bytes", entry.bagBytes},
          {"bag_time_us", entry.bagTimeUs},
          {"result", nameOf(entry.outcome)},
          {"error_code", entry.errorCode},
          {"check_code", entry.checkCode},
          {"failed_topics", entry.failedTopics},
          {"left_out_topics", entry.leftOutTopics},
          {"message", entry.message},
          {"files", entry.files},
          {"bytes", entry.bytes},
          {"seconds", entry.seconds}};
}

Manifest::Load Manifest::load(const std::string& path) {
  entries_.clear();
  if (!osmik::File::exists(path)) return Load::kMissing;
  const std::optional<std::string> text = readText(path);
  if (!text) return Load::kBroken;
  const Json document = Json::parse(*text, nullptr, false);  // no exceptions
  std::string format;
  int version = 0;
  if (!document.is_object() || !take(document, "format", &format) || format != kFormat ||
      !take(document, "version", &version) || version != kVersion ||
      !document.contains("projects") || !document["projects"].is_array()) {
    return Load::kBroken;
  }
  for (const Json& object : document["projects"]) {
    std::optional<ManifestEntry> entry = fromJson(object);
    if (!entry) {
      entries_.clear();
      return Load::kBroken;
    }
    put(std::move(*entry));
  }
  return Load::kOk;
}

bool Manifest::save(const std::string& path) const {
  Json projects = Json::array();
  for (const ManifestEntry& entry : entries_) projects.push_back(toJson(entry));
  const Json document = {{"format", kFormat}, {"version", kVersion}, {"projects", projects}};
  // A name that is no UTF-8 must not cost the whole record.
  return osmik::replaceFile(path,
                            document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

const ManifestEntry* Manifest::find(const std::string& project) const {
  const auto found = std::ranges::lower_bound(entries_, project, {}, &ManifestEntry::project);
  return found != entries_.end() && found->project == project ? &*found : nullptr;
}

void Manifest::put(ManifestEntry entry) {
  const auto place = std::ranges::lower_bound(entries_, entry.project, {}, &ManifestEntry::project);
  if (place != entries_.end() && place->project == entry.project) {
    *place = std::move(entry);
  } else {
    entries_.insert(place, std::move(entry));
  }
}

bool recordInManifest(const std::string& path, const ManifestEntry& entry) {
  const Log log({}, "recordInManifest");
  osmik::DirLock lock;
  // Without locks in the file system two programs may lose each other's entries, no more.
  ignoreResult(lock.lock(osmik::FilePath(path).dirName(), true));
  Manifest manifest;
  if (manifest.load(path) == Manifest::Load::kBroken) {
    log.warning("manifest(%s) cannot be read and is begun anew!", path);
  }
  manifest.put(entry);
  if (manifest.save(path)) return true;
  log.error("write manifest(%s) error: %s!", path, std::strerror(errno));
  return false;
}

}  // namespace morva::batch
