#include <string>
#include <vector>

#include "export/data_exporter.h"
#include "tool/commands.h"
#include "tool/topic_driver.h"

namespace morva {
namespace {

// A topic without an output fails by itself; it shares with nobody.
std::string outputOf(const std::string& topic) {
  const std::string file = DataExporter::dataFile(topic);
  return file.empty() ? topic : file;
}

bool unpackData(MorvaBag* bag, const std::string& outDir, const std::string& topic,
                const View& view, Crew* crew) {
  return DataExporter(bag, outDir, {}, crew).exportData(topic, view);
}

TopicCommand unpackCommand() {
  return {.function = "kbag_unpack_data_mt",
          .noun = "data",
          .dirPrefix = "/data-",
          .subDirs = {"/calib/config", "/images/camera_0", "/images/camera_1", "/lidar_points",
                      "/project_data"},
          .outputOf = outputOf,
          .exportTopic = unpackData};
}

}  // namespace

void kbag_unpack_data_mt(const std::string& bagPath, const std::vector<std::string>& topics,
                         const std::string& outDir, int threads) {
  runOnTopics(unpackCommand(),
              {.bagPath = bagPath, .topics = topics, .outDir = outDir, .threads = threads});
}

}  // namespace morva
