#ifndef MORVA_EXPORT_FRAME_LOOP_H_
#define MORVA_EXPORT_FRAME_LOOP_H_

#include <string>

#include "morva/bag.h"
#include "platform/ignore_result.h"

namespace morva {

/// Reads the messages of `view` in order and hands their frames, one by one, to `visit`, until it
/// returns false. Messages that cannot be read or converted contribute nothing.
///
/// @param convert  One of MsgConverter's functions.
/// @param visit    bool(const Frame&)
/// @return False when `visit` ended the loop.
template <typename Convert, typename Visit>
[[nodiscard]] bool forEachFrameWhile(const MorvaBag& bag, const MorvaBag::View& view,
                                     Convert convert, Visit visit) {
  std::string payload;
  for (const MorvaBag::View::MsgIndex& index : view.indexes) {
    if (!bag.readMessage(index, &payload)) continue;
    for (const auto& frame : convert(payload)) {
      if (frame != nullptr && !visit(*frame)) return false;
    }
  }
  return true;
}

/// The same for a `visit` that always goes on: void(const Frame&).
template <typename Convert, typename Visit>
void forEachFrame(const MorvaBag& bag, const MorvaBag::View& view, Convert convert, Visit visit) {
  const auto visitAndGoOn = [&visit](const auto& frame) {
    visit(frame);
    return true;
  };
  ignoreResult(forEachFrameWhile(bag, view, convert, visitAndGoOn));  // always true
}

}  // namespace morva

#endif  // MORVA_EXPORT_FRAME_LOOP_H_
