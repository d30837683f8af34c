#ifndef MORVA_TOOL_COMMANDS_H_
#define MORVA_TOOL_COMMANDS_H_

#include <string>
#include <vector>

#include "morva/bag.h"

/// The commands of the `kbag` tool. They print to standard output and return nothing: what goes
/// wrong is in their lines and in the log.
namespace morva {

/// Prints how the tool is used.
/// @param program  Path of the program, as it was called.
void help(const char* program);

/// Prints what the bag holds (a table of topics and a summary) and the device that recorded it.
/// @param bag     Open for reading.
/// @param detail  False: the device alone.
void kbag_info(MorvaBag* bag, bool detail);

/// Prints the time stamps and file offsets of the messages of chosen topics.
/// @param bag       Open for reading.
/// @param topics    Topics to show, in the order of the bag; empty: all. One named twice is shown
///                  twice, one that the bag does not hold is left out.
/// @param start     us since the Unix epoch, and
/// @param duration  s; both as MorvaBag::getView() takes them.
/// @param detail    Without effect.
void kbag_view(MorvaBag* bag, const std::vector<std::string>& topics, long start, long duration,
               bool detail);

/// Exports topics to tables, logs and carried files, each topic by a task of its own on a pool of
/// workers. Wipes the folders "config", "csv" and "project_data" of the output directory first.
///
/// @param bagPath  The bag; every task opens it for itself.
/// @param topics   Topics to export. Those that share an output run one after another, in this
/// order.
/// @param outDir   Where to; empty: "export-<bag name>" beside the bag.
/// @param threads  Number of workers; less than 1: one for each topic.
/// @param images   Also write the pictures of camera topics, as they were recorded, to "h264" and
///                 "jpeg/<camera>", wiped like the others.
void kbag_export_frame_mt(const std::string& bagPath, const std::vector<std::string>& topics,
                          const std::string& outDir, int threads, bool images = false);

/// Unpacks topics into the layout that processing tools read: text tables, logs, point clouds,
/// pictures and carried files. The same in all else, except that it wipes "calib/config",
/// "images/camera_0", "images/camera_1", "lidar_points" and "project_data", and that the output
/// directory is "data-<bag name>" where none is given.
void kbag_unpack_data_mt(const std::string& bagPath, const std::vector<std::string>& topics,
                         const std::string& outDir, int threads);

}  // namespace morva

#endif  // MORVA_TOOL_COMMANDS_H_
