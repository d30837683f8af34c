#include "morva/batch_task.h"
#include "task/batch_run.h"
#include "task/device_export.h"

namespace morva {

DevBagTool::DevBagTool() = default;

// Here and not in the base: the task runs an operation of this class.
DevBagTool::~DevBagTool() { StopTask(); }

bool DevBagTool::Init(const PreprocessArgs& args) {
  PreprocessArgs deviceArgs = args;
  deviceArgs.withConfigFile = false;
  deviceArgs.withLidar = true;
  return BagTool::Init(deviceArgs);
}

void DevBagTool::dataExportTask() {
  BatchRun run(this);
  if (!run.openBags(DeviceExport::isCounted)) return;
  run.forEachBag([&](const BatchRun::Job& job) {
    if (run.prepareOutput(job, DeviceExport::isCounted)) DeviceExport(&run, &job).run();
  });
  run.finish();
}

}  // namespace morva
