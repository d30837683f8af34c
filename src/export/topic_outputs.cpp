#include "export/topic_outputs.h"

#include "export/data_exporter.h"
#include "export/frame_exporter.h"
#include "platform/file_path.h"

namespace morva {
namespace {

bool exportFrames(const TopicJob& job) {
  return FrameExporter(job.bag, job.outDir, job.progress).exportFrame(job.topic, *job.view);
}

// Goes through the messages twice. The second time is not begun where the first was stopped.
bool exportFramesAndImages(const TopicJob& job) {
  bool goesOn = true;
  unsigned long doneBytes = 0;
  FrameExporter::Progress first;
  FrameExporter::Progress second;
  if (job.progress) {
    first = [&](unsigned long bytes) {
      doneBytes = bytes;
      goesOn = job.progress(bytes);
      return goesOn;
    };
    second = [&](unsigned long bytes) { return job.progress(doneBytes + bytes); };
  }
  const bool framesDone =
      FrameExporter(job.bag, job.outDir, first).exportFrame(job.topic, *job.view);
  if (FrameExporter::imageFile(job.topic).empty() || !goesOn) return framesDone;
  // The last component of a camera topic is the type of its pictures.
  const std::string type = osmik::FilePath(job.topic).baseName();
  return FrameExporter(job.bag, job.outDir, second).exportImage(job.topic, *job.view, type) &&
         framesDone;
}

bool unpackData(const TopicJob& job) {
  return DataExporter(job.bag, job.outDir, job.progress, job.crew).exportData(job.topic, *job.view);
}

unsigned onePass(const std::string& /*topic*/) { return 1; }

unsigned passesWithImages(const std::string& topic) {
  return FrameExporter::imageFile(topic).empty() ? 1 : 2;
}

}  // namespace

TopicOutputs topicOutputs(ExportLayout layout, bool pictures) {
  if (layout == ExportLayout::kUnpacked) {
    return {.folders = {"/calib/config", "/images/camera_0", "/images/camera_1", "/lidar_points",
                        "/project_data"},
            .fileOf = &DataExporter::dataFile,
            .exportTopic = unpackData,
            .passes = onePass};
  }
  TopicOutputs outputs{.folders = {"/config", "/csv", "/project_data"},
                       .fileOf = &FrameExporter::frameFile,
                       .exportTopic = exportFrames,
                       .passes = onePass};
  if (!pictures) return outputs;
  for (const std::string& folder : FrameExporter::imageDirectories()) {
    outputs.folders.push_back("/" + folder);
  }
  outputs.exportTopic = exportFramesAndImages;
  outputs.passes = passesWithImages;
  return outputs;
}

std::string outputKey(const TopicOutputs& outputs, const std::string& topic) {
  const std::string file = outputs.fileOf(topic);
  return file.empty() ? topic : file;
}

}  // namespace morva
