#ifndef MORVA_KIT_DOCTOR_TOPIC_NAMES_H_
#define MORVA_KIT_DOCTOR_TOPIC_NAMES_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace morva::doctor {

/// Topic names by id.
using TopicNames = std::map<std::uint32_t, std::string>;

/// Reads names as a user gives them.
/// @param words  Each is ID=NAME, several of them with commas between, or the path of a file with
///               an ID=NAME on each line (empty lines and those that begin with # do not count).
/// @return What is wrong; empty where nothing is.
[[nodiscard]] std::string readTopicNames(const std::vector<std::string>& words, TopicNames* names);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_TOPIC_NAMES_H_
