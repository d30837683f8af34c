#include <string>
#include <vector>

#include "export/topic_outputs.h"
#include "tool/commands.h"
#include "tool/topic_driver.h"

namespace morva {
namespace {

TopicCommand commandFor(ExportLayout layout, bool images) {
  const TopicOutputs outputs = topicOutputs(layout, images);
  const bool unpacks = layout == ExportLayout::kUnpacked;
  return {
      .function = unpacks ? "kbag_unpack_data_mt" : "kbag_export_frame_mt",
      .noun = unpacks ? "data" : "frame",
      .dirPrefix = unpacks ? "/data-" : "/export-",
      .subDirs = outputs.folders,
      .outputOf = [outputs](const std::string& topic) { return outputKey(outputs, topic); },
      .hasOutput = [outputs](const std::string& topic) { return !outputs.fileOf(topic).empty(); },
      .exportTopic =
          [outputs](MorvaBag* bag, const std::string& outDir, const std::string& topic,
                    const View& view, Crew* crew) {
            return outputs.exportTopic(
                {.bag = bag, .outDir = outDir, .topic = topic, .view = &view, .crew = crew});
          }};
}

}  // namespace

void kbag_export_frame_mt(const std::string& bagPath, const std::vector<std::string>& topics,
                          const std::string& outDir, int threads, bool images) {
  runOnTopics(commandFor(ExportLayout::kTables, images),
              {.bagPath = bagPath, .topics = topics, .outDir = outDir, .threads = threads});
}

void kbag_unpack_data_mt(const std::string& bagPath, const std::vector<std::string>& topics,
                         const std::string& outDir, int threads) {
  runOnTopics(commandFor(ExportLayout::kUnpacked, false),
              {.bagPath = bagPath, .topics = topics, .outDir = outDir, .threads = threads});
}

}  // namespace morva
