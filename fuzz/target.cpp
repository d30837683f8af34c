#include "target.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace morva::fuzz {
namespace {

constexpr std::array kTargets = {
    Target{"open", Form::kRecording, runOpen},
    Target{"read_chunks", Form::kRecording, runReadChunks},
    Target{"read_messages", Form::kRecording, runReadMessages},
    Target{"search", Form::kRecording, runSearch},
    Target{"index", Form::kIndex, runIndex},
    Target{"lidar", Form::kLidar, runLidar},
    Target{"convert", Form::kMessage, runConvert},
    Target{"device_info", Form::kDevice, runDeviceInfo},
    Target{"calibration", Form::kCalibration, runCalibration},
    Target{"restore", Form::kPacked, runRestore},
    Target{"check", Form::kRecording, runCheck},
    Target{"reindex", Form::kRecording, runReindex},
    Target{"info", Form::kRecording, runInfo},
    Target{"list", Form::kRecording, runList},
    Target{"export", Form::kRecording, runExport},
    Target{"unpack", Form::kRecording, runUnpack},
    Target{"device_task", Form::kRecording, runDeviceTask},
    Target{"doctor", Form::kRecording, runDoctor},
    Target{"salvage", Form::kRecording, runSalvage},
};

}  // namespace

std::span<const Target> allTargets() { return kTargets; }

const Target* findTarget(std::string_view name) {
  const auto* const found = std::ranges::find(kTargets, name, &Target::name);
  return found == kTargets.end() ? nullptr : found;
}

void expect(bool condition, const char* text) {
  if (condition) return;
  std::fprintf(stderr, "WRONG: %s\n", text);
  std::abort();
}

}  // namespace morva::fuzz
