#ifndef MORVA_EXPORT_BYTES_DONE_H_
#define MORVA_EXPORT_BYTES_DONE_H_

#include <functional>

#include "export/frame_loop.h"

namespace morva {

/// Tells `progress` how many payload bytes, before compression, are done with. It must outlive what
/// is returned; where it is empty, so is that.
inline MessageDone sumOfBytes(const std::function<bool(unsigned long)>& progress) {
  if (!progress) return {};
  return [&progress, total = 0UL](const MorvaBag::View::MsgIndex& index) mutable {
    total += index.rawSize;
    return progress(total);
  };
}

}  // namespace morva

#endif  // MORVA_EXPORT_BYTES_DONE_H_
