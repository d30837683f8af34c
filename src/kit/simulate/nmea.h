#ifndef MORVA_KIT_SIMULATE_NMEA_H_
#define MORVA_KIT_SIMULATE_NMEA_H_

#include <string>
#include <string_view>

#include "kit/simulate/gnss_receiver.h"

namespace morva::sim {

/// What a receiver prints for one fix: the sentences GGA, RMC and GST, each ending in CR LF.
[[nodiscard]] std::string nmeaSentences(const GnssFix& fix);

/// "$" + body + "*" + checksum + CR LF.
[[nodiscard]] std::string nmeaSentence(std::string_view body);

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_NMEA_H_
