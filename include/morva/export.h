#ifndef MORVA_EXPORT_H_
#define MORVA_EXPORT_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "morva/bag.h"

namespace morva {

/// Which files topics become. docs/outputs.md lists every file and column.
enum class ExportLayout : std::uint32_t {
  kTables = 0,    ///< as `kbag export`: CSV tables, raw logs, carried files
  kUnpacked = 1,  ///< as `kbag unpack`: text tables, point clouds, decoded pictures, carried files
};

/// How far an export is.
struct ExportProgress {
  std::string topic{};           ///< the one whose message was just worked on
  std::uint64_t doneBytes = 0;   ///< payload bytes before compression; never less than before
  std::uint64_t totalBytes = 0;  ///< of all that is to be exported; reached in the end
};

struct ExportOptions {
  ExportLayout layout = ExportLayout::kTables;
  /// What to export; those that share a file are written in this order. Empty: every topic of the
  /// bag that has an output in the layout.
  std::vector<std::string> topics{};
  /// Only messages of this time, as MorvaBag::getView() takes it: us since the Unix epoch, and s.
  std::int64_t startUs = 0;
  std::int64_t durationS = 0;
  /// kTables: also write the pictures of camera topics, as they were recorded, to "h264" and
  /// "jpeg/<camera>". Without effect on kUnpacked, which always decodes them.
  bool pictures = false;
  /// Workers, the calling thread included; less than 1: one for each processor. Topics of different
  /// files go to different workers; without a `progress` those share clouds and pictures, too.
  int threads = 1;
  /// Told after each message, by one thread at a time, not always the calling one. False ends the
  /// export. Throws nothing. May be empty.
  std::function<bool(const ExportProgress&)> progress{};
};

/// Results of exportTopics(). Values reach callers: never renumber, only append.
enum ExportCode : int {
  kExportOk = 0,
  kExportIncomplete = 1,  ///< of the failed topics something is missing; the others are whole
  kExportNotOpen = 2,     ///< the bag is not open for reading
  kExportNoFolder = 3,    ///< the folder, or one below it, cannot be made or made safe to write to
  kExportStopped = 4,     ///< `progress` said so; files of topics not yet done are partly written
};

struct ExportResult {
  int code = kExportOk;                     ///< one of ExportCode
  std::vector<std::string> failedTopics{};  ///< in the order of the export
};

/// Exports topics of an open bag into files.
///
/// Of the layout's folders for many files ("csv", "config", "project_data"; "lidar_points",
/// "images/camera_0" ...) whatever they held is removed first; other files are replaced. A topic
/// that fails does not keep the others from being exported, and its failure is logged. A message
/// that cannot be read or parsed is left out, which is a log line and no failure.
///
/// @param bag      Open for reading by open(); not owned. May be used for reading meanwhile.
/// @param dir      The output folder; made, with its parents, when missing. Not empty.
/// @param options  What to export, and how.
/// @return What failed. Nothing is thrown.
/// Threads: several exports may run at the same time, into different folders. Cost: memory for
/// some messages of each worker; it does not grow with the recording.
[[nodiscard]] ExportResult exportTopics(MorvaBag* bag, const std::string& dir,
                                        const ExportOptions& options = {});

/// The file into which a topic is exported, relative to the output folder; empty where the layout
/// has none for it. ".gitkeep" stands for all files of its folder: one for each sample or carried
/// file.
[[nodiscard]] std::string exportFile(ExportLayout layout, const std::string& topic);

}  // namespace morva

#endif  // MORVA_EXPORT_H_
