#include "kit/doctor/examination.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include "kit/doctor/chunk_walk.h"
#include "kit/doctor/file_map.h"
#include "kit/doctor/index_match.h"
#include "kit/doctor/payload_kind.h"
#include "kit/doctor/payload_reader.h"
#include "kit/doctor/recording_head.h"
#include "kit/doctor/topic_times.h"

namespace morva::doctor {
namespace {

/// Nothing but zero bytes.
bool isZeroed(const ByteRange& range, ByteSource* source) {
  constexpr std::uint64_t kStepBytes = 64UL * 1024;
  for (std::uint64_t at = range.begin; at < range.end; at += kStepBytes) {
    const auto size = static_cast<std::size_t>(std::min(kStepBytes, range.end - at));
    if (source->read(at, size).find_first_not_of('\0') != std::string::npos) return false;
  }
  return range.begin < range.end;
}

std::uint64_t& countOf(Proof proof, TopicAccount* topic) {
  switch (proof) {
    case Proof::kConfirmed:
      return topic->confirmed;
    case Proof::kRestored:
      return topic->restored;
    case Proof::kUnverified:
      break;
  }
  return topic->unverified;
}

Neighbour neighbourOf(const Message& message) {
  return {message.header.topicId, message.header.headerTimes[0]};
}

}  // namespace

Examination::Examination(std::string path) { account_.path = std::move(path); }

bool Examination::look(const Progress& progress) {
  if (!source_.open(account_.path)) {
    account_.problem = std::generic_category().message(errno);
    return false;
  }
  account_.fileBytes = source_.size();
  FoundChunks chunks = ChunkFinder(&source_).find(progress);
  account_.isComplete = chunks.isComplete;
  if (!chunks.isComplete) return false;
  const ChunkWalk walk(chunks, source_.size());
  RecordingHead head(walk, &source_, &account_);
  head.read();
  IndexMatch match(head.index(), chunks.sound, &source_);
  match.run();
  const FoundChunk* const definition = head.definition();
  if (definition != nullptr && match.isAmongMessages(definition->offset)) head.dropDefinition();
  FileMap(walk, head, match, &source_, &account_).draw();
  describeDamage();
  countLost();
  return true;
}

void Examination::describeDamage() {
  std::vector<const Message*> inFileOrder;
  for (const Message& message : account_.messages) inFileOrder.push_back(&message);
  std::ranges::sort(inFileOrder, {}, &Message::offset);
  const std::vector<ByteRange> unreadable = source_.unreadable();
  for (const ByteRange& range : unreadable) account_.unreadableBytes += range.end - range.begin;

  for (Damage& damage : account_.damage) {
    const ByteRange& range = damage.range;
    const auto at = std::ranges::lower_bound(inFileOrder, range.begin, {}, &Message::offset);
    if (at != inFileOrder.begin()) damage.before = neighbourOf(**std::prev(at));
    const auto behind = std::ranges::lower_bound(inFileOrder, range.end, {}, &Message::offset);
    if (behind != inFileOrder.end()) damage.behind = neighbourOf(**behind);
    damage.isUnreadable = std::ranges::any_of(unreadable, [&range](const ByteRange& bad) {
      return bad.begin < range.end && bad.end > range.begin;
    });
    damage.isZeros = !damage.isUnreadable && isZeroed(range, &source_);
  }
}

void Examination::countLost() {
  for (const auto& [id, name] : account_.topicNames) {
    account_.topics[static_cast<std::int32_t>(id)].name = name;
  }
  for (const LostMessage& message : account_.lost) ++account_.topics[message.header.topicId].lost;
}

void Examination::nameTopics(const std::map<std::uint32_t, std::string>& names) {
  account_.topicNames = names;
  for (const auto& [id, name] : names) {
    const auto topic = account_.topics.find(static_cast<std::int32_t>(id));
    if (topic != account_.topics.end()) topic->second.name = name;
  }
}

bool Examination::readPayloads(const Sink& sink, const Progress& progress) {
  PayloadReader reader(&source_, codecOf(account_.compression));
  std::vector<Message> messages = std::move(account_.messages);
  account_.messages.clear();
  std::string payload;
  std::uint64_t done = 0;
  for (Message& message : messages) {
    TopicAccount& topic = account_.topics[message.header.topicId];
    done += messageBytes(message.header.storedSize);
    account_.isComplete =
        progress(std::min(1.0, static_cast<double>(done) / static_cast<double>(source_.size())));
    if (!account_.isComplete) return false;
    if (!reader.read(&message, &payload)) {
      ++topic.unrestorable;
      continue;
    }
    ++countOf(message.proof, &topic);
    topic.bytes += payload.size();
    if (!isDecodable(topic.name, payload, message.header.storedSize)) ++topic.undecodable;
    account_.messages.push_back(message);
    if (sink && !sink(message, payload)) return false;
  }
  return true;
}

bool Examination::isSound() const {
  const bool hasParts = account_.headerState == HeaderState::kSound && account_.isDefinitionSound &&
                        account_.indexState == IndexState::kSound;
  const bool hasUsableSide =
      account_.sideState == SideState::kNone || account_.sideState == SideState::kMatches;
  const bool isIndexRight = account_.pointNowhere == 0 && account_.notInIndex == 0;
  const bool areTopicsSound = std::ranges::all_of(account_.topics, [this](const auto& entry) {
    const auto& [id, topic] = entry;
    return topic.unrestorable == 0 && topic.undecodable == 0 &&
           account_.topicNames.contains(static_cast<std::uint32_t>(id));
  });
  return hasParts && hasUsableSide && isIndexRight && areTopicsSound && account_.damage.empty() &&
         account_.unreadableBytes == 0;
}

void Examination::conclude() {
  assessTimes(&account_);
  if (!account_.messages.empty()) account_.verdict = Verdict::kDamaged;
  if (isSound()) account_.verdict = Verdict::kSound;
}

Account examine(const std::string& path, const Progress& progress) {
  constexpr double kLooking = 0.4;  // of the time
  Examination examination(path);
  const auto looking = [&](double done) { return progress(kLooking * done); };
  const auto reading = [&](double done) { return progress(kLooking + (1 - kLooking) * done); };
  if (examination.look(looking) && examination.readPayloads({}, reading)) examination.conclude();
  return examination.account();
}

}  // namespace morva::doctor
