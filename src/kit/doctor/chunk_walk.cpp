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

/// The sound chunks that lie within [begin, end), whether or not they lie within each other.
std::vector<const FoundChunk*> ChunkWalk::soundWithin(std::uint64_t begin, std::uint64_t end,
                                                      const std::vector<bool>& isSkipped) const {
  std::vector<const FoundChunk*> chunks;
  auto at = std::ranges::lower_bound(chunks_.sound, begin, {}, &FoundChunk::offset);
  for (; at != chunks_.sound.end() && at->offset < end; ++at) {
    const auto place = static_cast<std::size_t>(at - chunks_.sound.begin());
    const bool isFree = isSkipped.empty() || !isSkipped[place];
    if (isFree && at->end() <= end) chunks.push_back(&*at);
  }
  return chunks;
}

std::vector<ChunkWalk::Step> ChunkWalk::walk(std::uint64_t begin, std::uint64_t end,
                                             const std::vector<bool>& isSkipped) const {
  const std::vector<const FoundChunk*> sound = soundWithin(begin, end, isSkipped);
  auto next = sound.begin();
  std::vector<Step> steps;
  std::uint64_t at = begin;
  while (at < end) {
    while (next != sound.end() && (*next)->offset < at) ++next;
    Step step{Step::Kind::kGap, at, end, nullptr};
    const FoundChunk* const torn = followedTornAt(at);
    if (next != sound.end() && (*next)->offset == at) {
      step = {Step::Kind::kChunk, at, (*next)->end(), *next};
    } else if (torn != nullptr && torn->end() <= end) {
      step = {Step::Kind::kTorn, at, torn->end(), torn};
    } else if (next != sound.end()) {
      step.end = (*next)->offset;
    }
    steps.push_back(step);
    at = step.end;
  }
  return steps;
}

}  // namespace morva::doctor
