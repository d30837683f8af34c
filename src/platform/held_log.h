#ifndef MORVA_PLATFORM_HELD_LOG_H_
#define MORVA_PLATFORM_HELD_LOG_H_

#include <string>
#include <utility>
#include <vector>

namespace morva {

/// Log lines that are kept back until it is their turn: work that several threads share logs in the
/// order of the work, not of the threads. Threads: one at a time.
class HeldLog {
 public:
  /// While it lives, the lines that its thread logs go to `held` alone. The innermost one counts.
  class Scope {
   public:
    /// @param held  Not null; must outlive the scope.
    explicit Scope(HeldLog* held);
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope();

   private:
    HeldLog* before_;
  };

  /// Logs the lines, as they were and in their order, and forgets them.
  void print();

  /// Where the lines of this thread go; null: straight to the log. For the tracer.
  [[nodiscard]] static HeldLog* ofThread();
  void add(int level, const std::string& line) { lines_.emplace_back(level, line); }

 private:
  std::vector<std::pair<int, std::string>> lines_;  ///< with their levels
};

}  // namespace morva

#endif  // MORVA_PLATFORM_HELD_LOG_H_
