#include "platform/directory.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <system_error>

namespace osmik {

namespace fs = std::filesystem;

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
  std::error_code error;
  if (recursive) {
    fs::remove_all(path, error);
  } else {
    fs::remove(path, error);
  }
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
