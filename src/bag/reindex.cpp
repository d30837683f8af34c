#include "bag/chunk_walk.h"
#include "bag/scan.h"
#include "bag/side_file_writer.h"
#include "morva/bag.h"
#include "platform/file.h"
#include "platform/log.h"
#include "storage/bag_reader.h"

namespace morva {

int MorvaBag::reindex(const std::string& path) {
  const Log log({}, "reindex");
  constexpr int kScanFailed = 1;

  BagReader bag;
  if (const int code = openForWalk(path, log, &bag); !isWalkable(code)) return code;
  const std::string sidePath = path + std::string(layout::kSideFileSuffix);
  if (osmik::File::exists(sidePath)) log.warning("over write index file!");

  std::string index;
  if (!scanMessages(path, nullptr, &index)) {
    log.error("reindex bag file(%s) error!", path);
    return kScanFailed;
  }
  if (const int code = writeSideFile(sidePath, log, bag.header(), index); code != kSideFileOk) {
    return code;
  }
  log.info("reindex file(%s) success.", path);
  return 0;
}

}  // namespace morva
