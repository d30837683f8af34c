#ifndef MORVA_PLATFORM_DIR_LOCK_H_
#define MORVA_PLATFORM_DIR_LOCK_H_

#include <cstdint>
#include <string>

namespace osmik {

/// Keeps other programs, and other objects of this one, from holding the lock of the same
/// directory.
///
/// Leaves nothing behind: the system drops the lock with the object or the process, however that
/// ends. It binds only those who ask for it.
class DirLock {
 public:
  enum class Result : std::uint8_t {
    kHeld,         ///< nobody else has it
    kTaken,        ///< somebody else has it
    kUnavailable,  ///< the directory cannot be opened, or its file system knows no locks
  };

  DirLock() = default;
  DirLock(const DirLock&) = delete;
  DirLock& operator=(const DirLock&) = delete;
  ~DirLock();

  /// Tries to take the lock of `path`; waits until it is free when `wait` is set.
  [[nodiscard]] Result lock(const std::string& path, bool wait);

 private:
  int fd_ = -1;
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_DIR_LOCK_H_
