#ifndef MORVA_TESTS_FAULTS_FILE_CALL_FAULTS_H_
#define MORVA_TESTS_FAULTS_FILE_CALL_FAULTS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace morva::test {

enum class CallKind : std::uint8_t {
  kOpen,        ///< open, fopen of what is there
  kCreate,      ///< the same, to write
  kOpenDir,     ///< open, opendir of a folder
  kStat,        ///< stat, lstat, fstat, readlink, realpath
  kRead,        ///< read, pread
  kWrite,       ///< write, pwrite, fwrite
  kTruncate,    ///< ftruncate
  kSync,        ///< fsync of a file
  kSyncDir,     ///< fsync of a folder
  kCloseRead,   ///< close of what was not written to
  kCloseWrite,  ///< close, fclose of what was
  kList,        ///< readdir
  kMakeDir,     ///< mkdir
  kRemove,      ///< unlink, rmdir, remove
  kRename,      ///< rename, link
  kLock,        ///< flock
};
inline constexpr std::size_t kCallKinds = 16;

[[nodiscard]] const char* nameOf(CallKind kind);

/// A set of CallKind.
using CallKinds = std::uint32_t;
[[nodiscard]] constexpr CallKinds bit(CallKind kind) { return 1U << static_cast<unsigned>(kind); }
inline constexpr CallKinds kAllCalls = (1U << kCallKinds) - 1;

/// What goes wrong, and when.
struct Fault {
  CallKinds kinds = 0;  ///< the calls that it can hit, which alone are counted
  int error = 0;        ///< errno; 0: the call does half of what it was asked, at least one byte
  int first = 1;        ///< number of the first call that fails, from 1
  bool goesOn = false;  ///< so do all after it
};

/// Lets system calls that concern a folder and what is in it go wrong, whoever makes them: the
/// project, the standard library or another one. This program's own definitions of the calls stand
/// before the system's.
///
/// In force while it lives; one at a time. What is open when it begins is left alone. Files are not
/// really synced: that would take long, and shows nothing here. A close that fails has closed the
/// descriptor all the same, as the system's does. Threads: any.
class FileCallFaults {
 public:
  FileCallFaults(const std::string& folder, const Fault& fault);
  FileCallFaults(const FileCallFaults&) = delete;
  FileCallFaults& operator=(const FileCallFaults&) = delete;
  ~FileCallFaults();

  /// Calls so far that the fault could have hit.
  [[nodiscard]] int calls() const;
  /// Those that it did hit.
  [[nodiscard]] int hits() const;
  /// Kind and path of the first of them: "write /tmp/x/imu.csv".
  [[nodiscard]] std::string firstHit() const;
  [[nodiscard]] CallKind firstKind() const;
};

/// Bytes that were read from the folder since the latest FileCallFaults began.
[[nodiscard]] std::uint64_t bytesRead();

}  // namespace morva::test

#endif  // MORVA_TESTS_FAULTS_FILE_CALL_FAULTS_H_
