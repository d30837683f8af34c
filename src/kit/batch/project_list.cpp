#include "kit/batch/project_list.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <system_error>

#include "platform/directory.h"
#include "platform/str_util.h"
#include "task/project_folder.h"

namespace morva::batch {
namespace {

namespace fs = std::filesystem;

/// The absolute path with links resolved as far as it exists, without a slash at its end.
std::string absolutePath(const std::string& path) {
  std::error_code error;
  fs::path whole = fs::weakly_canonical(fs::absolute(path, error), error);
  if (error) whole = fs::absolute(path, error).lexically_normal();
  if (!whole.has_filename() && whole.has_relative_path()) whole = whole.parent_path();
  return whole.string();
}

std::vector<std::string> foldersIn(const std::string& folder) {
  std::vector<std::string> found;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code typeError;
    if (entry->is_directory(typeError)) found.push_back(entry->path().string());
  }
  return found;
}

/// Adds the project folders that `folder` stands for.
void expand(const std::string& folder, std::vector<std::string>* found, ProjectList* list) {
  // One that cannot be read may hold a bag: it is to fail, and not to be passed over.
  const auto maybeHoldsBag = [](const std::string& path) {
    return !findProjectBag(path).empty() || !osmik::Directory::isReadable(path);
  };
  std::vector<std::string> inside;
  if (!maybeHoldsBag(folder)) inside = foldersIn(folder);
  if (std::ranges::none_of(inside, maybeHoldsBag)) {
    found->push_back(folder);
    return;
  }
  for (const std::string& path : inside) {
    (maybeHoldsBag(path) ? *found : list->leftOut).push_back(path);
  }
}

Project describe(const std::string& path, const BatchOptions& options) {
  if (options.outDir.empty()) {
    const std::string output = path + "/output";
    return {path, output, manifestPathIn(output, {})};
  }
  const std::string outDir = absolutePath(options.outDir);
  const std::string output = (fs::path(outDir) / fs::path(path).filename()).string();
  return {path, output, manifestPathIn(outDir, options.shard)};
}

std::string findProblem(const std::vector<Project>& projects) {
  std::map<std::string, std::string> projectOf;
  for (const Project& project : projects) {
    if (project.outputPath == project.path) {
      return osmik::StrUtil::format("the output of %s would be the project itself", project.path);
    }
    const auto [other, isNew] = projectOf.emplace(project.outputPath, project.path);
    if (!isNew) {
      return osmik::StrUtil::format("%s and %s have the same output: %s", other->second,
                                    project.path, project.outputPath);
    }
  }
  return {};
}

}  // namespace

std::string manifestPathIn(const std::string& outDir, const Shard& shard) {
  if (shard.count == 0) return outDir + "/manifest.json";
  return osmik::StrUtil::format("%s/manifest-%u-of-%u.json", outDir, shard.index, shard.count);
}

ProjectList listProjects(const BatchOptions& options) {
  ProjectList list;
  std::vector<std::string> found;
  for (const std::string& folder : options.folders) expand(absolutePath(folder), &found, &list);
  std::ranges::sort(found);
  std::ranges::sort(list.leftOut);

  std::vector<Project> all;
  all.reserve(found.size());
  for (const std::string& path : found) all.push_back(describe(path, options));
  list.problem = findProblem(all);
  const std::size_t step = std::max(1U, options.shard.count);
  for (std::size_t i = options.shard.index; i < all.size(); i += step) {
    list.projects.push_back(all[i]);
  }
  return list;
}

}  // namespace morva::batch
