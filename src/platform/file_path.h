#ifndef MORVA_PLATFORM_FILE_PATH_H_
#define MORVA_PLATFORM_FILE_PATH_H_

#include <string>

namespace osmik {

/// A path and its parts. Threads: any.
class FilePath {
 public:
  explicit FilePath(std::string path);

  /// The absolute path with all links resolved; the path as given where nothing is there.
  [[nodiscard]] std::string realPath() const;
  /// What stands before the last "/": "." where there is none, "/" for a name in the root.
  [[nodiscard]] std::string dirName() const;
  /// What stands after the last "/": all of a path without one, nothing for a path that ends in
  /// one.
  [[nodiscard]] std::string baseName() const;

 private:
  std::string path_;
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_FILE_PATH_H_
