#ifndef MORVA_KIT_DOCTOR_SALVAGE_H_
#define MORVA_KIT_DOCTOR_SALVAGE_H_

#include <cstdint>
#include <functional>
#include <string>

#include "kit/doctor/account.h"
#include "kit/doctor/chunk_finder.h"
#include "kit/doctor/topic_names.h"

namespace morva::doctor {

struct SalvageOptions {
  std::string inPath;
  std::string outPath;
  TopicNames names;      ///< used where the recording's own are lost
  std::string likePath;  ///< another recording of the device: its names and device record; or empty
  bool force = false;    ///< replace an existing output
};

/// Where a new recording's device record comes from.
enum class DeviceSource : std::uint8_t {
  kNone,            ///< there is none
  kHeader,          ///< of the recording, under its checksum
  kSideFile,        ///< the side file's copy of the lost header
  kDamagedHeader,   ///< of the recording, with nothing to confirm it
  kOtherRecording,  ///< that of `likePath`
};

struct SalvageResult {
  bool isDone = false;  ///< the output is there
  bool isInterrupted = false;
  std::string problem;  ///< why it is not
  Account account;      ///< of the input
  std::uint64_t written = 0;
  std::uint64_t unnamed = 0;  ///< messages left out: nobody knows the name of their topic
  DeviceSource device = DeviceSource::kNone;
  bool areNamesGiven = false;  ///< topic names are not the recording's own
};

/// Writes a new, sound recording with every message of a damaged one that can still be read. The
/// input is not changed; unless all goes well, there is no output.
[[nodiscard]] SalvageResult salvage(const SalvageOptions& options, const Progress& progress);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_SALVAGE_H_
