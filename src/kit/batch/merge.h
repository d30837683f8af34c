#ifndef MORVA_KIT_BATCH_MERGE_H_
#define MORVA_KIT_BATCH_MERGE_H_

#include <string>

#include "kit/batch/manifest.h"

namespace morva::batch {

/// Joins the manifests that the shards of a run left in `dir` into "manifest.json" there, whose
/// entries of other projects stay.
/// @param shards  [out] The entries of the shards alone.
/// @return What is wrong, nothing being written then; empty on success. There have to be manifests
/// of
///         all shards, of one number of them, each of them readable.
[[nodiscard]] std::string mergeShards(const std::string& dir, Manifest* shards);

}  // namespace morva::batch

#endif  // MORVA_KIT_BATCH_MERGE_H_
