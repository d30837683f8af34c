#include "export/name_turns.h"

#include <algorithm>

namespace morva {

NameTurns::Turn::~Turn() {
  if (!isTaken_) take({});
  const std::lock_guard lock(turns_->mutex_);
  for (const std::string& name : names_) turns_->taken_.erase(name);
  turns_->changed_.notify_all();
}

void NameTurns::Turn::take(const std::vector<std::string>& names) {
  isTaken_ = true;
  std::unique_lock lock(turns_->mutex_);
  names_.insert(names.begin(), names.end());
  turns_->changed_.wait(lock, [this] {
    return turns_->next_ == piece_ && std::ranges::none_of(names_, [this](const std::string& name) {
             return turns_->taken_.contains(name);
           });
  });
  turns_->taken_.insert(names_.begin(), names_.end());
  ++turns_->next_;
  turns_->changed_.notify_all();
}

}  // namespace morva
