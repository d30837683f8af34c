#ifndef MORVA_KIT_SIMULATE_SAMPLED_STREAM_H_
#define MORVA_KIT_SIMULATE_SAMPLED_STREAM_H_

#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

#include "kbag_msgs.pb.h"
#include "kit/simulate/message_stream.h"

namespace morva::sim {

/// When a sensor samples: every periodUs from firstUs to lastUs, both included where the period
/// fits.
struct Sampling {
  std::int64_t firstUs = 0;
  std::int64_t lastUs = 0;
  std::int64_t periodUs = 1;
  std::uint32_t batch = 1;  ///< samples in a message
};

/// A sensor that samples at a fixed rate. A message is written when its last sample was taken.
/// @tparam Array  Array message of the schema.
template <typename Array>
class SampledStream : public MessageStream {
 public:
  using Sample = typename std::remove_pointer_t<decltype(std::declval<Array>().add_msgs())>;

  SampledStream(std::string topic, const Sampling& sampling, std::int64_t scale,
                bool compressible = true)
      : MessageStream(std::move(topic), compressible),
        sampling_(sampling),
        scale_(scale),
        timeUs_(sampling.firstUs) {}

  [[nodiscard]] State next(StreamMessage* message) final {
    if (timeUs_ > sampling_.lastUs) return State::kEnd;
    array_.Clear();  // keeps the samples' memory
    message->firstTimeUs = timeUs_;
    message->count = 0;
    for (; message->count < sampling_.batch && timeUs_ <= sampling_.lastUs; ++message->count) {
      Sample* sample = array_.add_msgs();
      sample->mutable_header()->set_timestamp(timeUs_);
      sample->mutable_header()->set_scale(scale_);
      sample->mutable_header()->set_seq(sequence_++);
      if (!fill(timeUs_, sample)) return State::kFailed;
      message->lastTimeUs = timeUs_;
      timeUs_ += sampling_.periodUs;
    }
    message->writeTimeUs = message->lastTimeUs + latencyUs();
    array_.SerializeToString(&message->payload);
    return State::kMessage;
  }

 protected:
  /// Fills in what the sensor measures; the header is filled already. @return False after an error
  /// line.
  [[nodiscard]] virtual bool fill(std::int64_t timeUs, Sample* sample) = 0;
  /// From a message's last sample to the recorder.
  [[nodiscard]] virtual std::int64_t latencyUs() const { return 0; }

  /// Codes a measurement as the header's scale says.
  [[nodiscard]] std::int64_t coded(double value) const {
    return std::llround(value * static_cast<double>(scale_));
  }

 private:
  Sampling sampling_;
  std::int64_t scale_;
  std::int64_t timeUs_;
  std::uint32_t sequence_ = 0;
  Array array_;
};

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_SAMPLED_STREAM_H_
