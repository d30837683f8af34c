#ifndef MORVA_KIT_DOCTOR_PAYLOAD_KIND_H_
#define MORVA_KIT_DOCTOR_PAYLOAD_KIND_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace morva::doctor {

/// Whether topics of this name carry messages whose form is known.
[[nodiscard]] bool isKnownTopic(std::string_view topic);

/// Whether a payload is a message of its topic's kind, with no more samples than the bytes that it
/// takes in the file are believed to hold; true for topics that are not known. Threads: any.
[[nodiscard]] bool isDecodable(std::string_view topic, const std::string& payload,
                               std::size_t storedBytes);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_PAYLOAD_KIND_H_
