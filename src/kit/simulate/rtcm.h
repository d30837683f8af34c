#ifndef MORVA_KIT_SIMULATE_RTCM_H_
#define MORVA_KIT_SIMULATE_RTCM_H_

#include <string>
#include <string_view>

namespace morva::sim {

/// A transport frame of RTCM 3: preamble, length, content, CRC-24Q. @param content  At most 1023
/// bytes.
[[nodiscard]] std::string rtcmFrame(std::string_view content);

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_RTCM_H_
