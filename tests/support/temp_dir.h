#ifndef MORVA_TESTS_SUPPORT_TEMP_DIR_H_
#define MORVA_TESTS_SUPPORT_TEMP_DIR_H_

#include <string>

namespace morva::test {

/// A fresh directory that is removed with all its contents in the end.
class TempDir {
 public:
  TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir();

  [[nodiscard]] const std::string& path() const { return path_; }
  /// The path of `name` in the directory.
  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// The whole contents of a file; fails the test when it cannot be read.
[[nodiscard]] std::string readFile(const std::string& path);
/// Creates or replaces a file; fails the test when it cannot be written.
void writeFile(const std::string& path, const std::string& content);

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_TEMP_DIR_H_
