#include "platform/directory.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <system_error>

namespace osmik {

namespace fs = std::filesystem;

namespace {

std::string withoutTrailingSlashes(const std::string& path) {
  const std::size_t last = path.find_last_not_of('/');
  return last == std::string::npos ? path : path.substr(0, last + 1);
}

}  // namespace

bool Directory::exists(const std::string& path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

bool Directory::createDir(const std::string& path, bool recursive) {
  std::error_code error;
  if (recursive) {
    fs::create_directories(path, error);
  } else {
    fs::create_directory(path, error);
  }
  return exists(path);
}

bool Directory::removeDir(const std::string& path, bool recursive) {
  // "link/" would name what the link points to.
  const fs::path name = withoutTrailingSlashes(path);
  std::error_code error;
  const fs::file_status status = fs::symlink_status(name, error);
  if (status.type() == fs::file_type::not_found) return true;
  if (!fs::is_directory(status) && !fs::is_symlink(status)) return false;
  if (recursive) {
    fs::remove_all(name, error);
  } else {
    fs::remove(name, error);
  }
  return !error;
}

bool Directory::removeLinks(const std::string& root, const std::string& below) {
  fs::path path = root;
  for (const fs::path& component : fs::path(below).relative_path()) {
    path /= component;
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    if (!fs::status_known(status)) return false;  // it may be one
    if (fs::is_symlink(status) && !fs::remove(path, error)) return false;
  }
  return true;
}

bool Directory::isReadable(const std::string& path) {
  std::error_code error;
  const fs::directory_iterator entries(path, error);
  return !error;
}

std::vector<std::string> Directory::getFileList(const std::string& path,
                                                const std::string& pattern) {
  std::vector<std::string> names;
  std::regex expression;
  try {
    expression.assign(pattern, std::regex::ECMAScript);
  } catch (const std::regex_error&) {
    return names;
  }
  std::error_code error;
  for (fs::directory_iterator entry(path, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code typeError;
    std::string name = entry->path().filename().string();
    if (entry->is_regular_file(typeError) && std::regex_match(name, expression)) {
      names.push_back(std::move(name));
    }
  }
  std::ranges::sort(names);
  return names;
}

}  // namespace osmik
