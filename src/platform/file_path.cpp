#include "platform/file_path.h"

#include <filesystem>
#include <system_error>
#include <utility>

namespace osmik {

FilePath::FilePath(std::string path) : path_(std::move(path)) {}

std::string FilePath::realPath() const {
  std::error_code error;
  const std::filesystem::path resolved = std::filesystem::canonical(path_, error);
  return error ? path_ : resolved.string();
}

std::string FilePath::dirName() const {
  const std::size_t slash = path_.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path_.substr(0, slash);
}

std::string FilePath::baseName() const {
  const std::size_t slash = path_.rfind('/');
  return slash == std::string::npos ? path_ : path_.substr(slash + 1);
}

}  // namespace osmik
