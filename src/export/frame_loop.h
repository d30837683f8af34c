#ifndef MORVA_EXPORT_FRAME_LOOP_H_
#define MORVA_EXPORT_FRAME_LOOP_H_

#include <functional>
#include <string>

#include "morva/bag.h"
#include "platform/ignore_result.h"

namespace morva {

/// Told when a loop is done with a message, whether or not it could be read. False ends the loop.
using MessageDone = std::function<bool(const MorvaBag::View::MsgIndex&)>;

/// Reads the messages of `view` in order and hands their frames, one by one, to `visit`, until it
/// returns false. Messages that cannot be read or converted contribute nothing.
///
/// @param convert  One of MsgConverter's functions.
/// @param visit    bool(const Frame&)
/// @param done     May be empty. Not told of the message at which `visit` ends the loop.
/// @return False when `visit` ended the loop.
template <typename Convert, typename Visit>
[[nodiscard]] bool forEachFrameWhile(const MorvaBag& bag, const MorvaBag::View& view,
                                     Convert convert, Visit visit, const MessageDone& done = {}) {
  std::string payload;
  for (const MorvaBag::View::MsgIndex& index : view.indexes) {
    if (bag.readMessage(index, &payload)) {
      for (const auto& frame : convert(payload)) {
        if (frame != nullptr && !visit(*frame)) return false;
      }
    }
    if (done && !done(index)) break;
  }
  return true;
}

/// The same for a `visit` that always goes on: void(const Frame&).
template <typename Convert, typename Visit>
void forEachFrame(const MorvaBag& bag, const MorvaBag::View& view, Convert convert, Visit visit,
                  const MessageDone& done = {}) {
  const auto visitAndGoOn = [&visit](const auto& frame) {
    visit(frame);
    return true;
  };
  ignoreResult(forEachFrameWhile(bag, view, convert, visitAndGoOn, done));  // always true
}

}  // namespace morva

#endif  // MORVA_EXPORT_FRAME_LOOP_H_
