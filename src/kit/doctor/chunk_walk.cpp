#include "kit/doctor/chunk_walk.h"

#include <algorithm>
#include <utility>

namespace morva::doctor {

ChunkWalk::ChunkWalk(const FoundChunks& chunks, std::uint64_t fileBytes)
    : chunks_(chunks), fileBytes_(fileBytes), isTornFollowed_(chunks.torn.size()) {
  if (chunks.torn.empty()) return;
  for (const FoundChunk& chunk : chunks.sound) soundEnds_.emplace_back(chunk.end(), chunk.offset);
  std::ranges::sort(soundEnds_);
  // From behind: whether a torn chunk is followed may depend on one behind it.
  for (std::size_t i = chunks.torn.size(); i-- > 0;) isTornFollowed_[i] = isFollowed(i);
}

const FoundChunk* ChunkWalk::soundAt(std::uint64_t offset) const {
  const auto at = std::ranges::lower_bound(chunks_.sound, offset, {}, &FoundChunk::offset);
  return at != chunks_.sound.end() && at->offset == offset ? &*at : nullptr;
}

/// Whether sizes are right although the checksum is wrong: something begins where the chunk ends.
/// Where sound chunks within it lead to the same end, they are the recording's, and it is not.
bool ChunkWalk::isFollowed(std::size_t torn) const {
  const FoundChunk& chunk = chunks_.torn[torn];
  const std::uint64_t end = chunk.end();
  const auto inner = std::ranges::upper_bound(soundEnds_, std::pair(end, chunk.offset));
  if (inner != soundEnds_.end() && inner->first == end) return false;
  return end == fileBytes_ || soundAt(end) != nullptr || followedTornAt(end) != nullptr;
}

const FoundChunk* ChunkWalk::followedTornAt(std::uint64_t offset) const {
  const auto at = std::ranges::lower_bound(chunks_.torn, offset, {}, &FoundChunk::offset);
  if (at == chunks_.torn.end() || at->offset != offset) return nullptr;
  return isTornFollowed_[static_cast<std::size_t>(at - chunks_.torn.begin())] ? &*at : nullptr;
}

const FoundChunk* ChunkWalk::nextSound(std::uint64_t from, std::uint64_t end,
                                       const std::vector<bool>& isSkipped) const {
  auto at = std::ranges::lower_bound(chunks_.sound, from, {}, &FoundChunk::offset);
  for (; at != chunks_.sound.end() && at->offset < end; ++at) {
    const auto place = static_cast<std::size_t>(at - chunks_.sound.begin());
    const bool isFree = isSkipped.empty() || !isSkipped[place];
    if (isFree && at->end() <= end) return &*at;
  }
  return nullptr;
}

std::vector<ChunkWalk::Step> ChunkWalk::walk(std::uint64_t begin, std::uint64_t end,
                                             const std::vector<bool>& isSkipped) const {
  std::vector<Step> steps;
  std::uint64_t at = begin;
  while (at < end) {
    Step step{Step::Kind::kGap, at, end, nullptr};
    const FoundChunk* const sound = nextSound(at, end, isSkipped);
    const FoundChunk* const torn = followedTornAt(at);
    if (sound != nullptr && sound->offset == at) {
      step = {Step::Kind::kChunk, at, sound->end(), sound};
    } else if (torn != nullptr && torn->end() <= end) {
      step = {Step::Kind::kTorn, at, torn->end(), torn};
    } else if (sound != nullptr) {
      step.end = sound->offset;
    }
    steps.push_back(step);
    at = step.end;
  }
  return steps;
}

}  // namespace morva::doctor
