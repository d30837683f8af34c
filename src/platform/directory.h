#ifndef MORVA_PLATFORM_DIRECTORY_H_
#define MORVA_PLATFORM_DIRECTORY_H_

#include <string>
#include <vector>

namespace osmik {

/// Operations on directories, by path. Threads: any.
class Directory {
 public:
  /// True when `path` is a directory, or a link to one.
  [[nodiscard]] static bool exists(const std::string& path);

  /// True when the names in the directory `path` can be read.
  [[nodiscard]] static bool isReadable(const std::string& path);

  /// Makes a directory, with `recursive` its missing parents too.
  /// @return True when it is there afterwards, also when it was there before.
  static bool createDir(const std::string& path, bool recursive);

  /// Removes a directory, with `recursive` all that it holds; never follows a symbolic link out of
  /// it (where `path` is a link, the link is removed). A file of that name is not touched.
  /// @return True when it is gone, also when it was not there.
  static bool removeDir(const std::string& path, bool recursive);

  /// Removes the symbolic links among the components of `below`, a path relative to `root`, so that
  /// what is made there lies in `root`. @return False when a link may be left.
  static bool removeLinks(const std::string& root, const std::string& below);

  /// Names of the regular files in `path` that match `pattern` whole (ECMAScript), in ascending
  /// byte order; empty where the directory cannot be read or the pattern is malformed.
  [[nodiscard]] static std::vector<std::string> getFileList(const std::string& path,
                                                            const std::string& pattern);
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_DIRECTORY_H_
