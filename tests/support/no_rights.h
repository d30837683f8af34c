#ifndef MORVA_TESTS_SUPPORT_NO_RIGHTS_H_
#define MORVA_TESTS_SUPPORT_NO_RIGHTS_H_

#include <filesystem>
#include <string>
#include <sys/fsuid.h>
#include <unistd.h>

namespace morva::test {

/// While it lives, file permissions hold for this thread, and for those that it starts, even where
/// the tests run as root: root's file accesses are made in the name of nobody.
class NoRights {
 public:
  NoRights() {
    if (::geteuid() != 0) return;
    ::setfsgid(kNobody);
    ::setfsuid(kNobody);
  }
  NoRights(const NoRights&) = delete;
  NoRights& operator=(const NoRights&) = delete;
  ~NoRights() {
    ::setfsuid(::geteuid());
    ::setfsgid(::getegid());
  }

  /// False where the system does not let root give up its rights: tests then skip.
  [[nodiscard]] static bool areInForce() {
    // An impossible user changes nothing; the call returns who it is now.
    return ::geteuid() != 0 || ::setfsuid(static_cast<uid_t>(-1)) == static_cast<int>(kNobody);
  }

 private:
  static constexpr uid_t kNobody = 65534;
};

/// Takes permissions away from a file or folder; gives them back in the end, so that it can be
/// removed.
class WithPermissions {
 public:
  WithPermissions(const std::string& path, std::filesystem::perms permissions)
      : path_(path), before_(std::filesystem::status(path).permissions()) {
    std::filesystem::permissions(path_, permissions);
  }
  WithPermissions(const WithPermissions&) = delete;
  WithPermissions& operator=(const WithPermissions&) = delete;
  ~WithPermissions() { std::filesystem::permissions(path_, before_); }

 private:
  std::string path_;
  std::filesystem::perms before_;
};

inline constexpr auto kNoAccess = std::filesystem::perms::none;
inline constexpr auto kReadOnly =
    std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec;

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_NO_RIGHTS_H_
