#include "bag/chunk_walk.h"
#include "morva/bag.h"
#include "platform/log.h"
#include "storage/bag_reader.h"

namespace morva {

int MorvaBag::checkAll(const std::string& path) {
  const Log log({}, "checkAll");
  constexpr int kDamaged = 7;

  BagReader bag;
  const int code = openForWalk(path, log, &bag);
  if (!isWalkable(code)) return code;
  return walkChunks(&bag, log, {}) ? 0 : kDamaged;
}

}  // namespace morva
