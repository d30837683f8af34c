#include "export/crew.h"

#include <algorithm>

namespace morva {

void Crew::helpUntil(const std::function<bool()>& isOver) {
  std::unique_lock lock(mutex_);
  while (!isOver()) {
    const auto pieces = std::ranges::find_if(shared_, &Pieces::hasNext);
    if (pieces == shared_.end()) {
      changed_.wait(lock);
    } else {
      prepareNext(*pieces, &lock);
    }
  }
}

void Crew::wake() {
  const std::lock_guard lock(mutex_);
  changed_.notify_all();
}

bool Crew::share(Pieces* pieces) {
  std::unique_lock lock(mutex_);
  const auto place = shared_.insert(shared_.end(), pieces);
  changed_.notify_all();
  const auto withdraw = [&] {
    if (!lock.owns_lock()) lock.lock();
    pieces->count_ = pieces->next_;  // nobody begins another one
    changed_.wait(lock, [&] { return pieces->inHand_ == 0; });
    shared_.erase(place);
  };
  try {
    const bool all = finishAll(pieces, &lock);
    withdraw();
    return all;
  } catch (...) {
    withdraw();
    throw;
  }
}

void Crew::prepareNext(Pieces* pieces, std::unique_lock<std::mutex>* lock) {
  const std::size_t piece = pieces->next_++;
  ++pieces->inHand_;
  lock->unlock();
  pieces->prepare(piece);
  lock->lock();
  --pieces->inHand_;
  pieces->isReady_[pieces->slotOf(piece)] = true;
  changed_.notify_all();
}

bool Crew::finishAll(Pieces* pieces, std::unique_lock<std::mutex>* lock) {
  while (pieces->finished_ < pieces->count_) {
    const std::size_t slot = pieces->slotOf(pieces->finished_);
    if (pieces->isReady_[slot]) {
      lock->unlock();
      const bool goesOn = pieces->finish(pieces->finished_);
      lock->lock();
      pieces->isReady_[slot] = false;
      ++pieces->finished_;
      changed_.notify_all();
      if (!goesOn) return false;
    } else if (pieces->hasNext()) {
      prepareNext(pieces, lock);
    } else {
      changed_.wait(*lock);
    }
  }
  return true;
}

}  // namespace morva
