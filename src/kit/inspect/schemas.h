#ifndef MORVA_KIT_INSPECT_SCHEMAS_H_
#define MORVA_KIT_INSPECT_SCHEMAS_H_

#include <string_view>

/// The schemas of what the commands print as JSON, which docs/schemas/ has as JSON Schema. The
/// number counts up when something that was there changes its meaning or goes away.
namespace morva::inspect {

inline constexpr std::string_view kInfoSchema = "kbagkit/info/1";
inline constexpr std::string_view kTopicsSchema = "kbagkit/topics/1";
inline constexpr std::string_view kMessagesSchema = "kbagkit/messages/1";
inline constexpr std::string_view kCatSchema = "kbagkit/cat/1";

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_SCHEMAS_H_
