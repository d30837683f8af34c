#ifndef MORVA_EXPORT_CREW_H_
#define MORVA_EXPORT_CREW_H_

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/held_log.h"

namespace morva {

/// Threads that have nothing better to do and lend a hand to those that have: a topic whose
/// messages take long is shared by all of them. Owns no thread. Threads: any.
class Crew {
 public:
  /// @param threads  How many may work at the same time, the ones that share their work included.
  explicit Crew(std::size_t threads) : threads_(threads) {}
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  [[nodiscard]] std::size_t threads() const { return threads_; }

  /// Works on what others share until `isOver`, waiting where there is nothing to be done.
  /// @param isOver  Called often, with a lock held: quick, and without calls of the crew.
  void helpUntil(const std::function<bool()>& isOver);

  /// Has every helper ask its `isOver` again. Call it when that may have changed.
  void wake();

  /// Pieces of work with numbers from 0 on: begun in order, by any thread, and finished in order,
  /// by the thread that shares them.
  class Pieces {
   public:
    /// @param window  Pieces begun and not finished, at most.
    Pieces(std::size_t count, std::size_t window) : count_(count), isReady_(window, false) {}
    Pieces(const Pieces&) = delete;
    Pieces& operator=(const Pieces&) = delete;
    virtual ~Pieces() = default;

   protected:
    /// Does one piece. Threads: any number at the same time. Throws nothing.
    virtual void prepare(std::size_t piece) = 0;
    /// Finishes it. @return False when none is to be finished any more.
    virtual bool finish(std::size_t piece) = 0;
    [[nodiscard]] std::size_t slotOf(std::size_t piece) const { return piece % isReady_.size(); }
    [[nodiscard]] std::size_t window() const { return isReady_.size(); }

   private:
    friend class Crew;
    [[nodiscard]] bool hasNext() const {
      return next_ < count_ && next_ - finished_ < isReady_.size();
    }

    std::size_t count_;
    std::size_t next_ = 0;      ///< the first that nobody has begun
    std::size_t finished_ = 0;  ///< the first that is not finished
    std::size_t inHand_ = 0;
    std::vector<bool> isReady_;  ///< by slot: done, and not finished
  };

  /// Shares `pieces` until all are finished, or finish() says that it is enough; works on them too.
  /// None is in anybody's hands afterwards. What finish() throws passes through.
  /// @return False when finish() said so.
  bool share(Pieces* pieces);

 private:
  /// Prepares the next piece, without the lock.
  void prepareNext(Pieces* pieces, std::unique_lock<std::mutex>* lock);
  [[nodiscard]] bool finishAll(Pieces* pieces, std::unique_lock<std::mutex>* lock);

  const std::size_t threads_;
  std::mutex mutex_;  ///< of all that follows, and of the pieces
  std::condition_variable changed_;
  std::list<Pieces*> shared_;
};

namespace crew_detail {

template <typename Prepare, typename Finish>
class Loop final : public Crew::Pieces {
 public:
  using Result = std::invoke_result_t<Prepare&, std::size_t>;

  Loop(std::size_t count, std::size_t window, Prepare& prepare, Finish& finish)
      : Pieces(count, window), prepare_(prepare), finish_(finish), slots_(window) {}

 private:
  struct Slot {
    std::optional<Result> result;
    std::exception_ptr exception;
    HeldLog log;
  };

  void prepare(std::size_t piece) override {
    Slot& slot = slots_[slotOf(piece)];
    const HeldLog::Scope hold(&slot.log);
    try {
      slot.result.emplace(prepare_(piece));
    } catch (...) {
      slot.exception = std::current_exception();
    }
  }

  bool finish(std::size_t piece) override {
    Slot& slot = slots_[slotOf(piece)];
    slot.log.print();
    if (slot.exception != nullptr) std::rethrow_exception(slot.exception);
    Result result = std::move(*slot.result);
    slot.result.reset();
    return finish_(piece, result);
  }

  Prepare& prepare_;
  Finish& finish_;
  std::vector<Slot> slots_;
};

}  // namespace crew_detail

/// Calls prepare(i) for every i below `count`, on this thread and on those of `crew`, several at
/// the same time, and finish(i, prepare(i)) on this thread, in order, until it returns false. What
/// prepare() logs appears right before the call of finish(), and what it throws is thrown there.
///
/// @param crew     Null: all on this thread, and nothing is prepared ahead.
/// @param prepare  Result(std::size_t)
/// @param finish   bool(std::size_t, Result&)
/// @return False when finish() did.
template <typename Prepare, typename Finish>
bool forEachInOrder(Crew* crew, std::size_t count, Prepare prepare, Finish finish) {
  if (crew == nullptr) {
    for (std::size_t i = 0; i < count; ++i) {
      auto result = prepare(i);
      if (!finish(i, result)) return false;
    }
    return true;
  }
  // So many that nobody waits for the one that finishes them, and few in memory.
  crew_detail::Loop<Prepare, Finish> loop(count, 2 * crew->threads(), prepare, finish);
  return crew->share(&loop);
}

}  // namespace morva

#endif  // MORVA_EXPORT_CREW_H_
