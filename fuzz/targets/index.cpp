// Index data: the scan, in pieces of every size, against the general parser.
#include <algorithm>
#include <string>
#include <vector>

#include "storage/index_codec.h"
#include "storage/index_scan.h"
#include "target.h"

namespace morva::fuzz {
namespace {

bool isSame(const BagFile::TopicHeader& a, const BagFile::TopicHeader& b) {
  return a.time == b.time && a.rawSize == b.rawSize && a.count == b.count &&
         a.headerTimes == b.headerTimes && a.topicId == b.topicId && a.storedSize == b.storedSize;
}

bool isSame(const BagFile::TopicIndex& a, const BagFile::TopicIndex& b) {
  return a.countSum == b.countSum && a.rawSizeSum == b.rawSizeSum && a.startTime == b.startTime &&
         a.endTime == b.endTime && a.chunkOffsets == b.chunkOffsets &&
         std::equal(a.entries.begin(), a.entries.end(), b.entries.begin(), b.entries.end(),
                    [](const auto& x, const auto& y) { return isSame(x, y); });
}

bool isSame(const BagFile::TopicIndexes& a, const BagFile::TopicIndexes& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
    return x.first == y.first && isSame(*x.second, *y.second);
  });
}

bool isSame(const EncodedTopic& a, const EncodedTopic& b) {
  return a.topicId == b.topicId && a.totals.chunks == b.totals.chunks &&
         a.offsetsAt == b.offsetsAt && a.offsetsEnd == b.offsetsEnd && a.entriesAt == b.entriesAt &&
         a.entriesEnd == b.entriesEnd;
}

/// @return Whether the scan takes `data` when it comes in pieces of `pieceBytes`.
bool scanInPieces(std::string_view data, std::size_t pieceBytes,
                  std::vector<EncodedTopic>* topics) {
  IndexScan scan(data.size());
  std::size_t at = 0;
  while (at < data.size()) {
    // In memory of its own, so that a look behind its end is seen.
    const std::vector<char> piece(
        data.begin() + static_cast<std::ptrdiff_t>(at),
        data.begin() + static_cast<std::ptrdiff_t>(std::min(at + pieceBytes, data.size())));
    const std::int64_t count = scan.feed({piece.data(), piece.size()});
    if (count < 0) return false;
    expect(count > 0, "a scan makes no progress");
    at += static_cast<std::size_t>(count);
    expect(at <= data.size(), "a scan consumes more than it was given");
  }
  *topics = scan.topics();
  return scan.isComplete();
}

}  // namespace

void runIndex(std::string_view input) {
  const std::string data(input);
  BagFile::TopicIndexes parsed, decoded;
  const bool isParsed = parseTopicIndexes(data, &parsed);
  expect(decodeTopicIndexes(data, &decoded) == isParsed, "the decoders' verdicts differ");
  expect(isSame(decoded, parsed), "the decoders' results differ");
  if (data.empty()) return;

  std::vector<EncodedTopic> topics;
  const bool isUsual = scanTopicIndexes(data, &topics);
  expect(isParsed || !isUsual, "the scan takes what the parser refuses");
  for (const std::size_t pieceBytes : {IndexScan::kTailBytes + 1, std::size_t{131}}) {
    std::vector<EncodedTopic> inPieces;
    expect(scanInPieces(data, pieceBytes, &inPieces) == isUsual, "pieces are scanned otherwise");
    expect(!isUsual || std::equal(topics.begin(), topics.end(), inPieces.begin(), inPieces.end(),
                                  [](const auto& a, const auto& b) { return isSame(a, b); }),
           "a scan in pieces gives other topics");
  }

  if (!isParsed || parsed.empty()) return;
  std::string encoded;
  BagFile::TopicIndexes again;
  expect(encodeTopicIndexes(parsed, &encoded) && decodeTopicIndexes(encoded, &again) &&
             isSame(again, parsed),
         "an index does not survive being written");
  expect(scanTopicIndexes(encoded, &topics), "an index as it is written has not the usual form");
}

}  // namespace morva::fuzz
