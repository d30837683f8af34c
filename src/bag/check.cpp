#include "bag/chunk_walk.h"
#include "morva/bag.h"
#include "platform/log.h"
#include "storage/bag_reader.h"

namespace morva {

int MorvaBag::checkAll(const std::string& path) { return checkAll(path, {}); }

int MorvaBag::checkAll(const std::string& path, const CheckProgress& goOn) {
  const Log log({}, "checkAll");
  constexpr int kDamaged = 7;

  BagReader bag;
  const int code = openForWalk(path, log, &bag);
  if (!isWalkable(code)) return code;
  bool stopped = false;
  const auto onMessage = [&](const BagFile::TopicHeader& /*entry*/, std::uint64_t offset) {
    stopped = goOn && !goOn(offset);
    return !stopped;
  };
  if (walkChunks(&bag, log, onMessage)) return 0;
  return stopped ? kCheckStopped : kDamaged;
}

}  // namespace morva
