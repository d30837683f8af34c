#ifndef MORVA_FUZZ_TARGET_H_
#define MORVA_FUZZ_TARGET_H_

#include <cstdint>
#include <span>
#include <string_view>

namespace morva::fuzz {

/// What the bytes of an input are, which decides about its seeds and how it is mutated.
enum class Form : std::uint8_t {
  kRecording,    ///< a bag, or a bag and its side file, see RecordingInput
  kIndex,        ///< data of an index chunk
  kLidar,        ///< payload of a lidar message
  kMessage,      ///< payload of any message
  kDevice,       ///< private data of a header
  kCalibration,  ///< YAML documents, each ended by a NUL byte or the input
  kPacked,       ///< compression byte, u32 raw size, compressed bytes
};

/// One way in which bytes come in. A run takes any bytes; it returns, or ends the process.
struct Target {
  const char* name;
  Form form;
  void (*run)(std::string_view input);
};

/// Every target, in the order in which they are run and reported.
[[nodiscard]] std::span<const Target> allTargets();
/// @return Null where there is none of that name.
[[nodiscard]] const Target* findTarget(std::string_view name);

/// Ends the process with `text` where `condition` does not hold: something was taken that is wrong.
void expect(bool condition, const char* text);

// The targets' runs, each in a file of its own under targets/.
void runOpen(std::string_view input);
void runReadChunks(std::string_view input);
void runReadMessages(std::string_view input);
void runSearch(std::string_view input);
void runIndex(std::string_view input);
void runLidar(std::string_view input);
void runConvert(std::string_view input);
void runDeviceInfo(std::string_view input);
void runCalibration(std::string_view input);
void runRestore(std::string_view input);
void runCheck(std::string_view input);
void runReindex(std::string_view input);
void runInfo(std::string_view input);
void runList(std::string_view input);
void runExport(std::string_view input);
void runUnpack(std::string_view input);
void runDeviceTask(std::string_view input);
void runDoctor(std::string_view input);
void runSalvage(std::string_view input);

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_TARGET_H_
