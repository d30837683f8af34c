#ifndef MORVA_EXPORT_TOPIC_OUTPUTS_H_
#define MORVA_EXPORT_TOPIC_OUTPUTS_H_

#include <functional>
#include <string>
#include <vector>

#include "export/crew.h"
#include "morva/bag.h"
#include "morva/export.h"

namespace morva {

/// One topic to export.
struct TopicJob {
  MorvaBag* bag;  ///< open for reading
  std::string outDir;
  std::string topic;
  const View* view;
  Crew* crew = nullptr;  ///< threads that lend a hand; null: none
  /// Told the payload bytes that are done; false ends the job, which is no failure. May be empty.
  std::function<bool(unsigned long)> progress{};
};

/// What exporting into one layout means, whoever does it.
struct TopicOutputs {
  std::vector<std::string> folders;  ///< "/csv": wiped and made in the output folder, in this order
  /// Of a topic, relative to the output folder; empty where it has none.
  std::string (*fileOf)(const std::string& topic);
  /// @return False when something of the topic is missing.
  bool (*exportTopic)(const TopicJob& job);
  /// How often exportTopic() goes through the messages of a topic.
  unsigned (*passes)(const std::string& topic);
};

/// @param pictures  As in ExportOptions.
[[nodiscard]] TopicOutputs topicOutputs(ExportLayout layout, bool pictures);

/// Topics with the same key write to the same file, so never at the same time. A topic without a
/// file shares with nobody.
[[nodiscard]] std::string outputKey(const TopicOutputs& outputs, const std::string& topic);

}  // namespace morva

#endif  // MORVA_EXPORT_TOPIC_OUTPUTS_H_
