#include "platform/new_file.h"

#include "platform/ignore_result.h"

namespace osmik {

bool openNewFile(const std::string& path, std::size_t bufferBytes, File* file) {
  morva::ignoreResult(File::remove(path));  // where that fails, so does the exclusive creation
  file->setWMBuffer(bufferBytes);
  return file->open(path, OpenMode::kWriteNew);
}

}  // namespace osmik
