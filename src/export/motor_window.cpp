#include "export/motor_window.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "export/frame_loop.h"
#include "messages/msg_converter.h"

namespace morva {
namespace {

constexpr double kDisorderS = 1.0;    // by which messages may be out of order without a second read
constexpr double kKeepBehindS = 2.0;  // frames step back by less
constexpr double kKeepAheadS = 30.0;

double firstOf(const MotorRecords& records) { return records.front()->time; }
double lastOf(const MotorRecords& records) { return records.back()->time; }

void sortByTime(MotorRecords* records) {
  if (!std::ranges::is_sorted(*records, {}, &MotorMsg::time)) {
    std::ranges::stable_sort(*records, {}, &MotorMsg::time);
  }
}

/// Cuts sorted records down to a span of time and its neighbours.
void trim(double fromS, double toS, MotorRecords* records) {
  auto last = std::ranges::lower_bound(*records, toS, {}, &MotorMsg::time);
  if (last != records->end()) records->erase(std::next(last), records->end());
  auto first = std::ranges::lower_bound(*records, fromS, {}, &MotorMsg::time);
  if (first != records->begin()) records->erase(records->begin(), std::prev(first));
}

}  // namespace

MotorWindow::MotorWindow(const Log& log, const MorvaBag& bag, const MorvaBag::View& view)
    : log_(log), bag_(bag), view_(view) {
  recentS_.fill(-std::numeric_limits<double>::infinity());
}

MotorRecords MotorWindow::around(double fromS, double toS, std::uint64_t chunkOffset) {
  dropFarFrom(fromS, toS);
  readAhead(toS, chunkOffset);
  MotorRecords records = gather(messagesAround(fromS, toS));
  trim(fromS, toS, &records);
  return records;
}

void MotorWindow::readAhead(double toS, std::uint64_t chunkOffset) {
  while (next_ < view_.indexes.size()) {
    const bool recordedBefore = view_.indexes[next_].chunkOffset < chunkOffset;
    if (!recordedBefore && isPast(toS + kDisorderS)) return;
    MotorRecords records = load(next_);
    if (!records.empty()) {
      const double firstS = firstOf(records);
      timeline_.insert({lastOf(records), {firstS, next_}});
      recentS_[recentAt_++ % recentS_.size()] = firstS;
      if (firstS <= toS + kKeepAheadS) keep(next_, std::move(records));
    }
    ++next_;
  }
}

bool MotorWindow::isPast(double timeS) const {
  return std::ranges::all_of(recentS_, [timeS](double recent) { return recent > timeS; });
}

MotorRecords MotorWindow::load(std::size_t index) const {
  std::string payload;
  MotorRecords records;
  if (!readPayload(log_, bag_, view_.indexes[index], &payload)) return records;
  for (const auto& frame : MsgConverter::fromMotorMsgArray(payload)) {
    records.push_back(frame->motor);
  }
  if (records.empty()) logUndecodable(log_, view_.indexes[index]);
  sortByTime(&records);
  return records;
}

void MotorWindow::keep(std::size_t index, MotorRecords records) {
  if (keptRecords_ >= kMaxRecords) {
    kept_.clear();
    keptRecords_ = 0;
  }
  keptRecords_ += records.size();
  kept_[index] = std::move(records);
}

std::vector<std::size_t> MotorWindow::messagesAround(double fromS, double toS) const {
  std::vector<std::size_t> messages;
  auto at = timeline_.lower_bound(fromS);
  if (at != timeline_.begin()) messages.push_back(std::prev(at)->second.index);
  // Messages that overlap are not in the order of their first times: look a little further than the
  // first one behind the span.
  bool reachesBehind = false;
  for (; at != timeline_.end() && !(reachesBehind && at->first > toS + kDisorderS); ++at) {
    reachesBehind = reachesBehind || at->first >= toS;
    messages.push_back(at->second.index);
  }
  return messages;
}

MotorRecords MotorWindow::gather(const std::vector<std::size_t>& messages) {
  MotorRecords all;
  for (const std::size_t index : messages) {
    if (all.size() >= kMaxRecords) break;
    if (!kept_.contains(index)) keep(index, load(index));
    const MotorRecords& records = kept_[index];
    all.insert(all.end(), records.begin(), records.end());
  }
  sortByTime(&all);
  return all;
}

void MotorWindow::dropFarFrom(double fromS, double toS) {
  std::erase_if(kept_, [&](const auto& message) {
    const MotorRecords& records = message.second;
    const bool isNear = !records.empty() && lastOf(records) >= fromS - kKeepBehindS &&
                        firstOf(records) <= toS + kKeepAheadS;
    if (!isNear) keptRecords_ -= records.size();
    return !isNear;
  });
}

}  // namespace morva
