#ifndef MORVA_BAG_SCAN_H_
#define MORVA_BAG_SCAN_H_

#include <string>

#include "morva/records.h"

namespace morva {

/// Collects every message of the bag at `path`, in file order, by walking its chunks. Damage ends
/// the walk with a warning; what was found before it is kept.
/// @param view   [out, may be null] Appended to.
/// @param index  [out, may be null] The index of these messages and of every topic of the bag,
///               serialized for an index chunk.
/// @return False after an error line when the bag cannot be opened or the index not be serialized.
[[nodiscard]] bool scanMessages(const std::string& path, View* view, std::string* index);

}  // namespace morva

#endif  // MORVA_BAG_SCAN_H_
