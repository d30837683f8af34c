#include "export/temporary_file.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "platform/ignore_result.h"
#include "platform/new_file.h"

namespace morva {

TemporaryFile::TemporaryFile(const std::string& path)
    : path_(path), isOpen_(osmik::openNewFile(path, 0, &file_)) {}

TemporaryFile::~TemporaryFile() {
  ignoreResult(file_.close());  // what it holds is of no use any more
  if (isOpen_ && !remains_) ignoreResult(osmik::File::remove(path_));  // nothing else can be done
}

std::int64_t TemporaryFile::write(const std::string& data) {
  return file_.writeData(data.data(), static_cast<std::int64_t>(data.size()));
}

bool TemporaryFile::renameTo(const std::string& path) {
  if (!file_.close()) return false;
  std::error_code error;
  std::filesystem::rename(path_, path, error);
  errno = error.value();
  remains_ = !error;
  return remains_;
}

}  // namespace morva
