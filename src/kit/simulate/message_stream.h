#ifndef MORVA_KIT_SIMULATE_MESSAGE_STREAM_H_
#define MORVA_KIT_SIMULATE_MESSAGE_STREAM_H_

#include <cstdint>
#include <string>
#include <utility>

namespace morva::sim {

/// One message as it goes into the bag.
struct StreamMessage {
  std::string payload;           ///< serialized array message
  std::uint32_t count = 0;       ///< samples in it
  std::int64_t firstTimeUs = 0;  ///< of its first sample, us since the Unix epoch
  std::int64_t lastTimeUs = 0;   ///< of its last sample
  std::int64_t writeTimeUs = 0;  ///< when the recorder got it
};

/// What one sensor gives to the recorder, message by message. Holds one message's data at a time,
/// so that a long recording needs no more memory than a short one.
class MessageStream {
 public:
  enum class State { kMessage, kEnd, kFailed };

  /// @param compressible  False for data that is compressed already.
  explicit MessageStream(std::string topic, bool compressible = true)
      : topic_(std::move(topic)), compressible_(compressible) {}
  MessageStream(const MessageStream&) = delete;
  MessageStream& operator=(const MessageStream&) = delete;
  virtual ~MessageStream() = default;

  [[nodiscard]] const std::string& topic() const { return topic_; }
  [[nodiscard]] bool isCompressible() const { return compressible_; }

  /// The next message, in ascending order of write times.
  /// @param message  [out] Unspecified unless the state is kMessage.
  /// @return kFailed after an error line: the recording cannot be made.
  [[nodiscard]] virtual State next(StreamMessage* message) = 0;

 private:
  std::string topic_;
  bool compressible_;
};

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_MESSAGE_STREAM_H_
