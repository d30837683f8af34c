#include "kit/doctor/report_text.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

#include "kit/console.h"
#include "kit/doctor/report_words.h"
#include "platform/str_util.h"

namespace morva::doctor {
namespace {

using kit::printable;
using osmik::StrUtil;

constexpr int kRed = 31;
constexpr int kGreen = 32;
constexpr int kYellow = 33;
constexpr std::size_t kMaxRows = 20;

int colourOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::kSound:
      return kGreen;
    case Verdict::kDamaged:
      return kYellow;
    case Verdict::kUnreadable:
      break;
  }
  return kRed;
}

std::string labelOf(const Account& account, std::int64_t topicId) {
  return printable(topicLabel(account, topicId));
}

std::string seconds(std::int64_t timeUs) {
  constexpr std::int64_t kUsPerS = 1'000'000;
  const std::int64_t wholeS = timeUs / kUsPerS;
  const std::int64_t restUs = timeUs % kUsPerS;
  const bool isNegative = timeUs < 0;
  return StrUtil::format("%s%lld.%06lld", isNegative ? "-" : "", isNegative ? -wholeS : wholeS,
                         isNegative ? -restUs : restUs);
}

std::string line(std::string_view what, const std::string& text) {
  return StrUtil::format("  %-10s %s\n", what, text);
}

std::string plural(std::uint64_t count, std::string_view what) {
  return StrUtil::format("%llu %s%s", count, what, count == 1 ? "" : "s");
}

/// Joins what is not empty.
std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
  std::string text;
  for (const std::string& part : parts) {
    if (part.empty()) continue;
    if (!text.empty()) text += separator;
    text += part;
  }
  return text;
}

std::string countIf(std::uint64_t count, std::string_view what) {
  return count == 0 ? std::string() : StrUtil::format("%llu %s", count, what);
}

std::string headerText(const Account& account) {
  const std::string codec = "compression " + compressionName(account.compression) +
                            (account.isCompressionGuessed ? " (by the messages)" : "");
  return joined({std::string(wordFor(account.headerState)), codec}, ", ");
}

std::string indexText(const Account& account) {
  const bool isFound =
      account.indexState == IndexState::kSound || account.indexState == IndexState::kMoved;
  const std::string where =
      isFound ? StrUtil::format("at %llu", account.indexOffset) : std::string();
  const std::string hint = account.indexState == IndexState::kNotClosed
                               ? std::string("the recording was cut off")
                               : std::string();
  return joined({std::string(wordFor(account.indexState)), where, hint}, ", ");
}

std::string indexAccountText(const Account& account) {
  if (!account.hasIndex) return "none: messages cannot be confirmed, nor counted that are lost";
  return joined(
      {plural(account.indexEntries, "message"), countIf(account.pointNowhere, "not where it says"),
       countIf(account.moved, "of these found elsewhere"),
       countIf(account.notInIndex, "in the file that it does not know")},
      ", ");
}

std::string messagesText(const Account& account) {
  const MessageCounts counts = countsOf(account);
  return joined(
      {StrUtil::format("%llu can be read", counts.readable),
       countIf(counts.restored, "of these restored from the index"),
       countIf(counts.unverified, "of these unverified"), countIf(counts.lost, "lost"),
       countIf(counts.unrestorable, "cannot be decompressed"),
       countIf(counts.undecodable, "do not decode"), countIf(account.repeated, "repeated"),
       countIf(account.withinDamage, "chunks within damaged messages")},
      ", ");
}

std::string lostText(const Account& account, const Damage& damage) {
  std::vector<std::string> parts;
  for (const auto& [id, count] : damage.lost) {
    parts.push_back(StrUtil::format("%llu of %s", count, labelOf(account, id)));
  }
  const std::string text = joined(parts, ", ");
  if (text.empty()) return {};
  return (damage.isLostKnown ? "lost: " : "lost, at least: ") + text;
}

std::string spanText(const Account& account, const Damage& damage) {
  const auto neighbour = [&](std::string_view where, const std::optional<Neighbour>& message) {
    if (!message) return std::string();
    return StrUtil::format("%s %s of %s", where, seconds(message->timeUs),
                           labelOf(account, message->topicId));
  };
  return joined({neighbour("after", damage.before), neighbour("before", damage.behind)}, ", ");
}

std::string damageText(const Account& account, const Damage& damage) {
  const std::uint64_t length = damage.range.end - damage.range.begin;
  std::string what(wordFor(damage.part));
  if (damage.isZeros) what += ", zeros";
  if (damage.isUnreadable) what += ", unreadable";
  std::string text = StrUtil::format("  %14llu %12llu  %s\n", damage.range.begin, length, what);
  for (const std::string& detail : {lostText(account, damage), spanText(account, damage)}) {
    if (!detail.empty()) text += StrUtil::format("  %14s %12s    %s\n", "", "", detail);
  }
  return text;
}

std::string moreRows(std::size_t count) {
  if (count <= kMaxRows) return {};
  return StrUtil::format("  and %llu more: --json lists all\n", count - kMaxRows);
}

std::string damageTable(const Account& account) {
  if (account.damage.empty()) return {};
  std::string text =
      kit::heading(StrUtil::format("  %14s %12s  %s", "damage at byte", "length", "what it hit")) +
      "\n";
  const std::size_t shown = std::min(account.damage.size(), kMaxRows);
  for (std::size_t i = 0; i < shown; ++i) text += damageText(account, account.damage[i]);
  return text + moreRows(account.damage.size());
}

std::string topicTable(const Account& account) {
  if (account.topics.empty()) return {};
  std::string text = kit::heading(StrUtil::format("  %-28s %9s %9s %9s %10s", "topic", "messages",
                                                  "unverif.", "lost", "undecoded")) +
                     "\n";
  for (const auto& [id, topic] : account.topics) {
    text += StrUtil::format("  %-28s %9llu %9llu %9llu %10llu\n", labelOf(account, id),
                            topic.readable(), topic.unverified, topic.lost, topic.undecodable);
  }
  return text;
}

std::string timeTable(const Account& account) {
  std::vector<std::string> rows;
  for (const auto& [id, topic] : account.topics) {
    for (const StepBack& step : topic.stepsBack) {
      rows.push_back(StrUtil::format("  %-28s runs back from %s to %s, at byte %llu\n",
                                     labelOf(account, id), seconds(step.fromUs), seconds(step.toUs),
                                     step.offset));
    }
    for (const Gap& gap : topic.gaps) {
      rows.push_back(StrUtil::format("  %-28s gap from %s to %s, %llu messages at its rate\n",
                                     labelOf(account, id), seconds(gap.fromUs), seconds(gap.toUs),
                                     gap.missing));
    }
  }
  if (rows.empty()) return {};
  std::string text = kit::heading("  times") + "\n";
  for (std::size_t i = 0; i < std::min(rows.size(), kMaxRows); ++i) text += rows[i];
  return text + moreRows(rows.size());
}

std::string titleOf(const Account& account) {
  const std::string word(wordFor(account.verdict));
  return printable(account.path) + ": " + kit::coloured(word, colourOf(account.verdict));
}

}  // namespace

std::string textOf(const Account& account) {
  if (!account.problem.empty()) return titleOf(account) + ": " + account.problem + "\n";
  std::string text = titleOf(account) + StrUtil::format(", %llu bytes\n", account.fileBytes);
  text += line("header", headerText(account));
  text += line("topics", account.isDefinitionSound ? plural(account.topicNames.size(), "name")
                                                   : "their names are lost");
  text += line("index", indexText(account));
  if (account.sideState != SideState::kNone) {
    text += line("side file", joined({std::string(wordFor(account.sideState)),
                                      plural(account.sideEntries, "message")},
                                     ", "));
  }
  text += line("by index", indexAccountText(account));
  text += line("messages", messagesText(account));
  return text + damageTable(account) + topicTable(account) + timeTable(account);
}

std::string textOf(const SalvageResult& result, const SalvageOptions& options) {
  const Account& account = result.account;
  const MessageCounts counts = countsOf(account);
  std::string text = titleOf(account) + " -> " + printable(options.outPath) + "\n";
  text +=
      line("kept", joined({plural(result.written, "message"),
                           countIf(counts.restored, "of these restored from the index"),
                           countIf(counts.unverified - std::min(counts.unverified, result.unnamed),
                                   "of these unverified")},
                          ", "));
  const std::string lost =
      joined({countIf(counts.lost, "lost"), countIf(counts.unrestorable, "cannot be decompressed"),
              countIf(result.unnamed, "of topics without a name")},
             ", ");
  if (!lost.empty()) text += line("not kept", lost);
  if (!account.hasIndex) text += line("", "without an index, nobody knows how many are lost");
  if (result.areNamesGiven) text += line("names", "not the recording's own");
  if (result.device != DeviceSource::kNone) {
    text += line("device", "from the " + std::string(wordFor(result.device)));
  }
  text += line("checked", "the new recording reads back as it was written");
  return text + damageTable(account) + topicTable(account);
}

}  // namespace morva::doctor
