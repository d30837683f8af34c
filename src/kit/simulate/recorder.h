#ifndef MORVA_KIT_SIMULATE_RECORDER_H_
#define MORVA_KIT_SIMULATE_RECORDER_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kit/simulate/streams.h"
#include "morva/bag.h"

namespace morva::sim {

/// What was recorded of one topic.
struct TopicSummary {
  std::string topic;
  std::uint64_t messages = 0;
  std::uint64_t samples = 0;
  std::uint64_t bytes = 0;  ///< payload bytes before compression
};

/// Called with the part of the recording that is done, 0 to 1. False stops it.
using Progress = std::function<bool(double)>;

/// Merges streams in the order of their messages' write times and writes them to a bag. Holds one
/// message a stream.
class Recorder {
 public:
  explicit Recorder(std::vector<StreamPtr> streams);

  [[nodiscard]] std::vector<std::string> topics() const;

  /// Records everything that the streams give.
  /// @param bag       Open for writing, with topics().
  /// @param endUs     Time at which the progress is 1.
  /// @param progress  May be empty.
  /// @return False after an error line, or when told to stop.
  [[nodiscard]] bool record(MorvaBag* bag, std::int64_t endUs, const Progress& progress);

  /// One entry a stream, in the order of topics().
  [[nodiscard]] std::vector<TopicSummary> summaries() const;

 private:
  struct Input {
    StreamPtr stream;
    StreamMessage pending;
    bool ended = false;
    TopicSummary summary;
  };

  [[nodiscard]] static bool advance(Input* input);
  [[nodiscard]] Input* earliest();
  [[nodiscard]] static bool write(Input* input, MorvaBag* bag);

  std::vector<Input> inputs_;
};

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_RECORDER_H_
