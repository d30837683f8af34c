#ifndef MORVA_EXPORT_FRAME_LOOP_H_
#define MORVA_EXPORT_FRAME_LOOP_H_

#include <functional>
#include <string>

#include "messages/crowded_payload.h"
#include "morva/bag.h"
#include "platform/ignore_result.h"
#include "platform/log.h"

namespace morva {

/// Told when a loop is done with a message, whether or not it could be read. False ends the loop.
using MessageDone = std::function<bool(const MorvaBag::View::MsgIndex&)>;

/// Logs a message that was read whole but is no message of its topic's kind. (Text that is not
/// UTF-8 is enough for that: the name of a carried file, for one.)
inline void logUndecodable(const Log& log, const MorvaBag::View::MsgIndex& index) {
  log.error("message of topic[%s] at offset(%llu) cannot be decoded!",
            std::string(index.topicName.data()), index.chunkOffset);
}

/// Reads the payload of one message, to be converted. @return False after an error line where it
/// cannot be read, or holds more samples than its bytes in the file are believed to.
[[nodiscard]] inline bool readPayload(const Log& log, const MorvaBag& bag,
                                      const MorvaBag::View::MsgIndex& index, std::string* payload) {
  if (!bag.readMessage(index, payload)) return false;
  if (!isCrowded(*payload, index.storedSize)) return true;
  log.error("message of topic[%s] at offset(%llu) holds too many samples for its %u bytes!",
            std::string(index.topicName.data()), index.chunkOffset, index.storedSize);
  return false;
}

/// Reads one message and converts it. No frames where it cannot be read, or, after an error line,
/// converted.
template <typename Convert>
[[nodiscard]] auto readFrames(const Log& log, const MorvaBag& bag,
                              const MorvaBag::View::MsgIndex& index, Convert convert,
                              std::string* payload) -> decltype(convert(*payload)) {
  if (!readPayload(log, bag, index, payload)) return {};
  auto frames = convert(*payload);
  if (frames.empty()) logUndecodable(log, index);
  return frames;
}

/// Reads the messages of `view` in order and hands their frames, one by one, to `visit`, until it
/// returns false. Messages that cannot be read or converted contribute nothing but an error line.
///
/// @param log      Of the operation that wants the frames.
/// @param convert  One of MsgConverter's functions.
/// @param visit    bool(const Frame&)
/// @param done     May be empty. Not told of the message at which `visit` ends the loop.
/// @return False when `visit` ended the loop.
template <typename Convert, typename Visit>
[[nodiscard]] bool forEachFrameWhile(const Log& log, const MorvaBag& bag,
                                     const MorvaBag::View& view, Convert convert, Visit visit,
                                     const MessageDone& done = {}) {
  std::string payload;
  for (const MorvaBag::View::MsgIndex& index : view.indexes) {
    for (const auto& frame : readFrames(log, bag, index, convert, &payload)) {
      if (frame != nullptr && !visit(*frame)) return false;
    }
    if (done && !done(index)) break;
  }
  return true;
}

/// The same for a `visit` that always goes on: void(const Frame&).
template <typename Convert, typename Visit>
void forEachFrame(const Log& log, const MorvaBag& bag, const MorvaBag::View& view, Convert convert,
                  Visit visit, const MessageDone& done = {}) {
  const auto visitAndGoOn = [&visit](const auto& frame) {
    visit(frame);
    return true;
  };
  ignoreResult(forEachFrameWhile(log, bag, view, convert, visitAndGoOn, done));  // always true
}

}  // namespace morva

#endif  // MORVA_EXPORT_FRAME_LOOP_H_
