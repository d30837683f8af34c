#ifndef MORVA_TOOL_TOPIC_DRIVER_H_
#define MORVA_TOOL_TOPIC_DRIVER_H_

#include <functional>
#include <string>
#include <vector>

#include "export/crew.h"
#include "morva/bag.h"

namespace morva {

/// What one parallel command does with the topics of a bag; all else is the same for every command.
struct TopicCommand {
  const char* function;              ///< name in log lines
  const char* noun;                  ///< what it exports, in its console lines: "frame"
  const char* dirPrefix;             ///< before the bag's name in the default output directory
  std::vector<std::string> subDirs;  ///< wiped and made in the output directory, in this order

  /// Names the output of a topic. Topics of the same output never run at the same time.
  std::function<std::string(const std::string& topic)> outputOf;

  /// Whether there is anything to write of a topic.
  std::function<bool(const std::string& topic)> hasOutput = [](const std::string&) { return true; };

  /// Exports one topic. Called by several workers at the same time, each with a bag of its own; of
  /// very many topics, those without an output share one.
  /// `crew` are the workers that have no topic to export; null where there is one worker alone.
  /// @return False when something of the topic is missing.
  std::function<bool(MorvaBag* bag, const std::string& outDir, const std::string& topic,
                     const View& view, Crew* crew)>
      exportTopic;
};

/// The bag to take topics from and where to put them.
struct TopicRequest {
  std::string bagPath;
  std::vector<std::string> topics;
  std::string outDir;  ///< empty: beside the bag, named after it
  int threads = 1;     ///< workers; less than 1: one for each topic
};

/// Runs `command` on every topic of `request` on a pool of workers, and returns when all are done.
/// Workers for which no topic is left, or whose topic waits for another one, help the others.
///
/// A topic that fails prints a line; the others go on. Where no worker can be started, one error
/// line is logged and no directory is touched.
void runOnTopics(const TopicCommand& command, const TopicRequest& request);

}  // namespace morva

#endif  // MORVA_TOOL_TOPIC_DRIVER_H_
