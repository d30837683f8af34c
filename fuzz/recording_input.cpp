#include "recording_input.h"

#include <cstdint>

#include "platform/byte_order.h"

namespace morva::fuzz {
namespace {

constexpr std::string_view kMark = "SIDE";
constexpr std::size_t kTrailerBytes = 4 + kMark.size();

}  // namespace

RecordingInput RecordingInput::parse(std::string_view input) {
  RecordingInput result;
  if (input.size() >= kTrailerBytes && input.ends_with(kMark)) {
    const std::size_t contents = input.size() - kTrailerBytes;
    const std::size_t sideSize = loadLe<std::uint32_t>(&input[contents]);
    if (sideSize <= contents) {
      result.hasSide = true;
      result.side = input.substr(contents - sideSize, sideSize);
      input = input.substr(0, contents - sideSize);
    }
  }
  result.bag = input;
  return result;
}

std::string RecordingInput::bytes() const {
  if (!hasSide) return bag;
  std::string result = bag + side;
  appendLe<std::uint32_t>(&result, static_cast<std::uint32_t>(side.size()));
  result += kMark;
  return result;
}

}  // namespace morva::fuzz
