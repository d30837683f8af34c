#ifndef MORVA_EXPORT_TEMPORARY_FILE_H_
#define MORVA_EXPORT_TEMPORARY_FILE_H_

#include <cstdint>
#include <string>

#include "platform/file.h"

namespace morva {

/// A file that is removed in the end, whatever happens, unless it was given another name.
///
/// What has its name is removed first; the file is then created exclusively, so that it follows no
/// link and is nobody else's.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& path);
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  /// False, with errno set, where it could not be created.
  [[nodiscard]] bool isOpen() const { return isOpen_; }
  [[nodiscard]] const std::string& path() const { return path_; }

  /// Writes without a buffer, for other programs to read at once.
  /// @return Bytes written, or -1 with errno set.
  [[nodiscard]] std::int64_t write(const std::string& data);

  /// Closes the file and gives it another name, in the place of what has that name.
  /// @return False with errno set; the file is removed in the end then.
  [[nodiscard]] bool renameTo(const std::string& path);

 private:
  std::string path_;
  osmik::File file_;
  bool isOpen_ = false;
  bool remains_ = false;
};

}  // namespace morva

#endif  // MORVA_EXPORT_TEMPORARY_FILE_H_
