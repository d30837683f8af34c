#ifndef MORVA_EXPORT_TOPIC_OUTPUT_H_
#define MORVA_EXPORT_TOPIC_OUTPUT_H_

#include <algorithm>
#include <string>
#include <string_view>

#include "morva/bag.h"
#include "platform/file.h"

namespace morva {

/// What an exporter makes of one topic: a row of its table.
template <typename Exporter>
struct TopicOutput {
  std::string_view topic;
  std::string_view file;  // relative to the output directory
  bool (Exporter::*handler)(osmik::File*, const MorvaBag::View&);
};

/// The row of a topic; null where there is none.
template <typename Table>
const typename Table::value_type* findOutput(const Table& table, std::string_view topic) {
  const auto row = std::ranges::find(table, topic, &Table::value_type::topic);
  return row == table.end() ? nullptr : &*row;
}

/// The file of a topic; empty where there is none.
template <typename Table>
std::string fileOfOutput(const Table& table, std::string_view topic) {
  const auto* const row = findOutput(table, topic);
  return row == nullptr ? std::string() : std::string(row->file);
}

}  // namespace morva

#endif  // MORVA_EXPORT_TOPIC_OUTPUT_H_
