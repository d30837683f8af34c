#ifndef MORVA_EXPORT_NAME_TURNS_H_
#define MORVA_EXPORT_NAME_TURNS_H_

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace morva {

/// Lets several threads write files at the same time, but those of one name in the order of the
/// pieces of work that write them, so that the last one remains. Threads: any.
class NameTurns {
 public:
  /// The turn of one piece. Every piece, from 0 on, must get one, used or not, and pieces are begun
  /// in order: each waits until the ones before it have told their names.
  class Turn {
   public:
    Turn(NameTurns* turns, std::size_t piece) : turns_(turns), piece_(piece) {}
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    /// The names are free then.
    ~Turn();

    /// Returns when no earlier piece writes any of `names` any more. Call it once at most.
    void take(const std::vector<std::string>& names);

   private:
    NameTurns* turns_;
    std::size_t piece_;
    bool isTaken_ = false;
    std::set<std::string> names_;
  };

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t next_ = 0;         ///< the piece that may tell its names
  std::set<std::string> taken_;  ///< names that are written now
};

}  // namespace morva

#endif  // MORVA_EXPORT_NAME_TURNS_H_
