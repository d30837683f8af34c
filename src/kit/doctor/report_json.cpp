#include "kit/doctor/report_json.h"

#include <algorithm>
#include <optional>

#include <nlohmann/json.hpp>

#include "kit/doctor/report_words.h"

namespace morva::doctor {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;

template <typename T>
Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json headerJson(const Account& account) {
  const BagFile::Header& header = account.header;
  const bool isSound = account.headerState == HeaderState::kSound;
  return {{"state", wordFor(account.headerState)},
          {"compression", compressionName(account.compression)},
          {"compression_guessed", account.isCompressionGuessed},
          {"version", isSound ? Json(header.version()) : Json(nullptr)},
          {"creation_time_us", isSound ? Json(header.creationTime()) : Json(nullptr)},
          {"closed", isSound ? Json(header.indexChunkOffset() != 0) : Json(nullptr)}};
}

Json indexJson(const Account& account) {
  const bool isFound =
      account.indexState == IndexState::kSound || account.indexState == IndexState::kMoved;
  return {{"state", wordFor(account.indexState)},
          {"offset", isFound ? Json(account.indexOffset) : Json(nullptr)},
          {"entries", account.hasIndex ? Json(account.indexEntries) : Json(nullptr)},
          {"point_nowhere", account.pointNowhere},
          {"moved", account.moved},
          {"missing_messages", account.notInIndex}};
}

Json sideJson(const Account& account) {
  return {{"state", wordFor(account.sideState)}, {"entries", account.sideEntries}};
}

Json messagesJson(const Account& account) {
  const MessageCounts counts = countsOf(account);
  return {{"readable", counts.readable},
          {"confirmed", counts.confirmed},
          {"restored", counts.restored},
          {"unverified", counts.unverified},
          {"lost", account.hasIndex ? Json(counts.lost) : Json(nullptr)},
          {"unrestorable", counts.unrestorable},
          {"undecodable", counts.undecodable},
          {"repeated", account.repeated},
          {"within_damage", account.withinDamage}};
}

Json neighbourJson(const Account& account, const std::optional<Neighbour>& neighbour) {
  if (!neighbour) return nullptr;
  return {{"topic", topicLabel(account, neighbour->topicId)}, {"time_us", neighbour->timeUs}};
}

Json damageJson(const Account& account, const Damage& damage) {
  Json lost = Json::array();
  for (const auto& [id, count] : damage.lost) {
    lost.push_back({{"topic", topicLabel(account, id)}, {"messages", count}});
  }
  return {{"offset", damage.range.begin},
          {"length", damage.range.end - damage.range.begin},
          {"part", wordFor(damage.part)},
          {"zeros", damage.isZeros},
          {"unreadable", damage.isUnreadable},
          {"lost", lost},
          {"lost_by_index", damage.isLostKnown},
          {"first_lost_us", orNull(damage.firstLostUs)},
          {"last_lost_us", orNull(damage.lastLostUs)},
          {"before", neighbourJson(account, damage.before)},
          {"behind", neighbourJson(account, damage.behind)}};
}

Json topicJson(const Account& account, std::int32_t id, const TopicAccount& topic) {
  Json gaps = Json::array();
  for (const Gap& gap : topic.gaps) {
    gaps.push_back({{"from_us", gap.fromUs}, {"to_us", gap.toUs}, {"missing", gap.missing}});
  }
  Json stepsBack = Json::array();
  for (const StepBack& step : topic.stepsBack) {
    stepsBack.push_back({{"offset", step.offset}, {"from_us", step.fromUs}, {"to_us", step.toUs}});
  }
  return {{"id", id},
          {"topic", topicLabel(account, id)},
          {"readable", topic.readable()},
          {"confirmed", topic.confirmed},
          {"restored", topic.restored},
          {"unverified", topic.unverified},
          {"lost", account.hasIndex ? Json(topic.lost) : Json(nullptr)},
          {"unrestorable", topic.unrestorable},
          {"undecodable", topic.undecodable},
          {"bytes", topic.bytes},
          {"first_us", topic.firstUs},
          {"last_us", topic.lastUs},
          {"period_us", topic.periodUs},
          {"gaps", gaps},
          {"steps_back", stepsBack}};
}

Json lostJson(const Account& account) {
  Json lost = Json::array();
  for (const LostMessage& message : account.lost) {
    lost.push_back({{"topic", topicLabel(account, message.header.topicId)},
                    {"time_us", message.header.headerTimes[0]},
                    {"count", message.header.count},
                    {"written_at", message.writtenAt}});
  }
  return lost;
}

/// Runs of messages, one behind the other in the file, that nothing confirms.
Json unverifiedJson(const Account& account) {
  std::vector<const Message*> messages;
  for (const Message& message : account.messages) messages.push_back(&message);
  std::ranges::sort(messages, {}, &Message::offset);
  Json runs = Json::array();
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < messages.size(); ++i) {
    if (messages[i]->proof != Proof::kUnverified) continue;
    const bool isNew = count == 0 || messages[i - 1]->proof != Proof::kUnverified;
    count = isNew ? 1 : count + 1;
    if (isNew) runs.push_back({{"from", messages[i]->offset}});
    runs.back()["to"] = messages[i]->offset;
    runs.back()["messages"] = count;
  }
  return runs;
}

Json accountJson(const Account& account) {
  Json damage = Json::array();
  for (const Damage& range : account.damage) damage.push_back(damageJson(account, range));
  Json topics = Json::array();
  for (const auto& [id, topic] : account.topics) topics.push_back(topicJson(account, id, topic));
  return {{"path", account.path},
          {"verdict", wordFor(account.verdict)},
          {"problem", account.problem},
          {"bytes", account.fileBytes},
          {"unreadable_bytes", account.unreadableBytes},
          {"header", headerJson(account)},
          {"topic_names", account.isDefinitionSound ? "sound" : "lost"},
          {"index", indexJson(account)},
          {"side_file", sideJson(account)},
          {"messages", messagesJson(account)},
          {"damage", damage},
          {"topics", topics},
          {"unverified_runs", unverifiedJson(account)},
          {"lost_messages", lostJson(account)}};
}

std::string dump(const Json& document) {
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string jsonOf(const std::vector<Account>& accounts, int exitStatus) {
  Json bags = Json::array();
  for (const Account& account : accounts) bags.push_back(accountJson(account));
  return dump({{"format", "kbagkit doctor"},
               {"version", kVersion},
               {"bags", bags},
               {"exit_status", exitStatus}});
}

std::string jsonOf(const SalvageResult& result, const SalvageOptions& options, int exitStatus) {
  return dump({{"format", "kbagkit salvage"},
               {"version", kVersion},
               {"output", result.isDone ? Json(options.outPath) : Json(nullptr)},
               {"problem", result.problem},
               {"written", result.written},
               {"unnamed", result.unnamed},
               {"device_from", wordFor(result.device)},
               {"names_given", result.areNamesGiven},
               {"bag", accountJson(result.account)},
               {"exit_status", exitStatus}});
}

}  // namespace morva::doctor
