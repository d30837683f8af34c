// The search for the next chunk, from wherever damage may have ended a walk.
#include <algorithm>
#include <cstdint>
#include <string>

#include "storage/bag_layout.h"
#include "storage/bag_reader.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {
namespace {

constexpr int kMaxSteps = 200;

/// Where the search has to end: at the last byte 01 of the first stretch of 1024 bytes with one.
std::int64_t expectedMatch(std::string_view bag, std::size_t from) {
  for (std::size_t at = from; at < bag.size(); at += 1024) {
    const std::size_t match = bag.substr(at, 1024).rfind('\1');
    if (match != std::string_view::npos) return static_cast<std::int64_t>(at + match);
  }
  return -1;
}

}  // namespace

void runSearch(std::string_view input) {
  WorkPlace& place = WorkPlace::get();
  const RecordingInput recording = RecordingInput::parse(input);
  BagReader reader;
  if (!place.open(recording, &reader)) return;

  std::int64_t offset = layout::kHeaderBytes;
  for (int i = 0; i < kMaxSteps; ++i) {
    BagFile::Chunk found, direct;
    std::int64_t next = -1, nextDirect = -1;
    const std::int64_t length = reader.readNextChunk(&found, offset, &next);
    const std::int64_t match = expectedMatch(recording.bag, static_cast<std::size_t>(offset));
    if (match < 0) {
      expect(length < 0, "a chunk was found where there is no mark");
      return;
    }
    expect(reader.read(&direct, match, &nextDirect) == length, "the search found another place");
    if (length >= 0) {
      expect(next == nextDirect && found.data == direct.data && found.type == direct.type,
             "the search found another chunk");
    }
    offset = length < 0 ? std::max(match, offset) + 1 : next;
  }
}

}  // namespace morva::fuzz
