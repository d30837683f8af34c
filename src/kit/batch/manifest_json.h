#ifndef MORVA_KIT_BATCH_MANIFEST_JSON_H_
#define MORVA_KIT_BATCH_MANIFEST_JSON_H_

#include <nlohmann/json.hpp>

#include "kit/batch/manifest.h"

namespace morva::batch {

/// An entry as it stands in a manifest, keys in their order there.
[[nodiscard]] nlohmann::ordered_json toJson(const ManifestEntry& entry);

}  // namespace morva::batch

#endif  // MORVA_KIT_BATCH_MANIFEST_JSON_H_
