#include <string>
#include <utility>
#include <vector>

#include "export/frame_exporter.h"
#include "platform/file_path.h"
#include "tool/commands.h"
#include "tool/topic_driver.h"

namespace morva {
namespace {

// A topic without an output fails by itself; it shares with nobody.
std::string outputOf(const std::string& topic) {
  const std::string file = FrameExporter::frameFile(topic);
  return file.empty() ? topic : file;
}

bool exportFrames(MorvaBag* bag, const std::string& outDir, const std::string& topic,
                  const View& view, Crew* /*crew*/) {
  return FrameExporter(bag, outDir).exportFrame(topic, view);
}

bool exportFramesAndImages(MorvaBag* bag, const std::string& outDir, const std::string& topic,
                           const View& view, Crew* /*crew*/) {
  FrameExporter exporter(bag, outDir);
  const bool framesDone = exporter.exportFrame(topic, view);
  if (FrameExporter::imageFile(topic).empty()) return framesDone;
  // The last component of a camera topic is the type of its pictures.
  const std::string type = osmik::FilePath(topic).baseName();
  return exporter.exportImage(topic, view, type) && framesDone;
}

TopicCommand exportCommand(bool images) {
  std::vector<std::string> subDirs{"/config", "/csv", "/project_data"};
  if (images) {
    for (const std::string& dir : FrameExporter::imageDirectories()) subDirs.push_back("/" + dir);
  }
  return {.function = "kbag_export_frame_mt",
          .noun = "frame",
          .dirPrefix = "/export-",
          .subDirs = std::move(subDirs),
          .outputOf = outputOf,
          .exportTopic = images ? exportFramesAndImages : exportFrames};
}

}  // namespace

void kbag_export_frame_mt(const std::string& bagPath, const std::vector<std::string>& topics,
                          const std::string& outDir, int threads, bool images) {
  runOnTopics(exportCommand(images),
              {.bagPath = bagPath, .topics = topics, .outDir = outDir, .threads = threads});
}

}  // namespace morva
