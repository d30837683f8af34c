#include "kit/batch/merge.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <set>
#include <string_view>
#include <vector>

#include "kit/batch/project_list.h"
#include "platform/dir_lock.h"
#include "platform/directory.h"
#include "platform/ignore_result.h"
#include "platform/str_util.h"

namespace morva::batch {
namespace {

using osmik::StrUtil;

/// The number of shards that a manifest's name "manifest-I-of-N.json" speaks of; 0: not a number.
unsigned shardCountIn(std::string_view name) {
  constexpr std::string_view kBeforeCount = "-of-";
  name.remove_prefix(name.find(kBeforeCount) + kBeforeCount.size());
  unsigned count = 0;
  std::from_chars(name.data(), name.data() + name.size(), count);
  return count;
}

std::string findShardCount(const std::string& dir, unsigned* count) {
  std::set<unsigned> counts;
  for (const std::string& name :
       osmik::Directory::getFileList(dir, "manifest-[0-9]+-of-[0-9]+\\.json")) {
    counts.insert(shardCountIn(name));
  }
  if (counts.empty()) return StrUtil::format("there are no manifests of shards in %s", dir);
  if (counts.size() > 1) {
    return StrUtil::format("there are shards of %u and of %u in %s: remove the older ones",
                           *counts.begin(), *counts.rbegin(), dir);
  }
  *count = *counts.begin();
  return *count > 0 ? std::string() : StrUtil::format("no number of shards in %s", dir);
}

}  // namespace

std::string mergeShards(const std::string& dir, Manifest* shards) {
  unsigned count = 0;
  if (std::string problem = findShardCount(dir, &count); !problem.empty()) return problem;
  for (unsigned i = 0; i < count; ++i) {
    const std::string path = manifestPathIn(dir, {i, count});
    Manifest shard;
    const Manifest::Load result = shard.load(path);
    if (result == Manifest::Load::kMissing) return StrUtil::format("there is no %s", path);
    if (result == Manifest::Load::kBroken) return StrUtil::format("%s cannot be read", path);
    for (const ManifestEntry& entry : shard.entries()) shards->put(entry);
  }

  const std::string path = manifestPathIn(dir, {});
  osmik::DirLock lock;
  ignoreResult(lock.lock(dir, true));  // see recordInManifest()
  Manifest whole;
  if (whole.load(path) == Manifest::Load::kBroken) {
    return StrUtil::format("%s cannot be read", path);
  }
  for (const ManifestEntry& entry : shards->entries()) whole.put(entry);
  if (whole.save(path)) return {};
  return StrUtil::format("%s cannot be written: %s", path, std::strerror(errno));
}

}  // namespace morva::batch
