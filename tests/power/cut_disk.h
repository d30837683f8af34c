#ifndef MORVA_TESTS_POWER_CUT_DISK_H_
#define MORVA_TESTS_POWER_CUT_DISK_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "platform/file_calls.h"

namespace morva::test {

/// A storage device whose power may be cut: the file calls, written down, from which every state
/// that a cut may leave is made. In force from the start until it is stopped. The calls are really
/// made, but for fsync.
///
/// What holds after a cut: what a file held at its last fsync, and its name once its directory was
/// synced after it was made. Of everything later any part may be there: each block of a file as any
/// of the later writes left it, independently of the others, and any of the sizes that it has had.
/// Where there is size without data there are zeros. A block is written whole or not at all.
/// Threads: one.
class CutDisk final : public osmik::FileCalls {
 public:
  using Files = std::map<std::string, std::string>;  ///< contents by path

  CutDisk();
  CutDisk(const CutDisk&) = delete;
  CutDisk& operator=(const CutDisk&) = delete;
  ~CutDisk() override;

  /// Writes nothing down any more.
  void stop();

  /// Calls so far that change anything or sync.
  [[nodiscard]] std::size_t calls() const { return calls_.size(); }

  /// What a process leaves that is killed after its first `calls` calls: everything that it has
  /// handed over, and a random part, of whole pages, of the write that it was in.
  [[nodiscard]] Files afterKill(std::size_t calls, std::mt19937* random) const;

  /// Random ones of the states that a power cut after the first `calls` calls may leave.
  [[nodiscard]] std::vector<Files> afterCut(std::size_t calls, std::size_t blockBytes,
                                            std::size_t states, std::mt19937* random) const;

  int open(const char* path, int flags, mode_t mode) override;
  ssize_t pwrite(int fd, const void* data, std::size_t size, off_t offset) override;
  int ftruncate(int fd, off_t size) override;
  int fsync(int fd) override;
  int close(int fd) override;

 private:
  enum class Kind : std::uint8_t { kCreate, kWrite, kResize, kSync, kSyncDirectory };
  struct Call {
    Kind kind = Kind::kCreate;
    std::string path;
    std::size_t offset = 0;  ///< of a resize: the size
    std::string data;
  };
  struct OpenFile {
    std::string path;
    bool isDirectory = false;
  };
  /// A file at some moment.
  struct History {
    std::string synced;                 ///< its content at the last sync
    std::vector<const Call*> unsynced;  ///< since then, in order
    bool isNameSynced = false;
  };

  static void apply(const Call& call, std::string* content);
  [[nodiscard]] std::map<std::string, History> historiesAt(std::size_t calls) const;
  [[nodiscard]] static std::vector<std::size_t> sizesOf(const History& history);
  [[nodiscard]] static std::string stateOf(const History& history, std::size_t blockBytes,
                                           std::mt19937* random);
  static void applyToBlocks(const Call& call, std::size_t blockBytes, std::size_t number,
                            const std::vector<std::size_t>& versions, std::string* state);

  std::vector<Call> calls_;
  std::map<int, OpenFile> open_;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_POWER_CUT_DISK_H_
