#include "kit/simulate/recorder.h"

#include <algorithm>
#include <utility>

#include "kit/simulate/time_base.h"

namespace morva::sim {

Recorder::Recorder(std::vector<StreamPtr> streams) {
  for (StreamPtr& stream : streams) {
    Input input;
    input.summary.topic = stream->topic();
    input.stream = std::move(stream);
    inputs_.push_back(std::move(input));
  }
}

std::vector<std::string> Recorder::topics() const {
  std::vector<std::string> topics;
  for (const Input& input : inputs_) topics.push_back(input.summary.topic);
  return topics;
}

std::vector<TopicSummary> Recorder::summaries() const {
  std::vector<TopicSummary> summaries;
  for (const Input& input : inputs_) summaries.push_back(input.summary);
  return summaries;
}

bool Recorder::record(MorvaBag* bag, std::int64_t endUs, const Progress& progress) {
  for (Input& input : inputs_) {
    if (!advance(&input)) return false;
  }
  const double spanUs = static_cast<double>(std::max<std::int64_t>(endUs - kStartUs, 1));
  while (Input* input = earliest()) {
    const double done = static_cast<double>(input->pending.writeTimeUs - kStartUs) / spanUs;
    if (progress && !progress(std::clamp(done, 0.0, 1.0))) return false;
    if (!write(input, bag) || !advance(input)) return false;
  }
  return true;
}

bool Recorder::advance(Input* input) {
  const MessageStream::State state = input->stream->next(&input->pending);
  input->ended = state == MessageStream::State::kEnd;
  return state != MessageStream::State::kFailed;
}

// The input whose message comes first; of equal ones the first. Null when all have ended.
Recorder::Input* Recorder::earliest() {
  Input* first = nullptr;
  for (Input& input : inputs_) {
    if (input.ended) continue;
    if (first == nullptr || input.pending.writeTimeUs < first->pending.writeTimeUs) first = &input;
  }
  return first;
}

bool Recorder::write(Input* input, MorvaBag* bag) {
  const StreamMessage& message = input->pending;
  const std::string header = MorvaBag::makeMessageHeader(
      input->stream->isCompressible(), message.count, message.firstTimeUs, message.lastTimeUs);
  if (!bag->writeMessage(input->summary.topic, message.writeTimeUs, header, message.payload)) {
    return false;
  }
  ++input->summary.messages;
  input->summary.samples += message.count;
  input->summary.bytes += message.payload.size();
  return true;
}

}  // namespace morva::sim
