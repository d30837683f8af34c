#ifndef MORVA_KIT_INSPECT_BASE64_H_
#define MORVA_KIT_INSPECT_BASE64_H_

#include <string>
#include <string_view>

namespace morva::inspect {

/// Appends bytes in base64 (RFC 4648, with padding).
void appendBase64(std::string_view bytes, std::string* text);

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_BASE64_H_
