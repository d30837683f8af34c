// The whole of a salvage: what it writes is sound, and was in the input.
#include "kit/doctor/salvage.h"

#include <filesystem>
#include <set>
#include <string>

#include <nlohmann/json.hpp>

#include "account_truth.h"
#include "bag_draft.h"
#include "kit/doctor/examination.h"
#include "kit/doctor/report_json.h"
#include "kit/doctor/report_text.h"
#include "message_walk.h"
#include "morva/bag.h"
#include "platform/crc32.h"
#include "storage/bag_reader.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {
namespace {

const doctor::Progress kGoOn = [](double /*done*/) { return true; };

/// Checksums of the payloads that can be restored from an account's messages, as many times as they
/// are there.
std::multiset<std::uint32_t> payloadSums(const doctor::Account& account, std::string_view bag) {
  std::multiset<std::uint32_t> sums;
  for (const doctor::Message& message : account.messages) {
    DraftChunk chunk;
    chunk.header.assign(layout::kTopicHeaderBytes, '\0');
    chunk.data = bag.substr(message.offset + layout::kTopicDataOffset, message.header.storedSize);
    chunk.setRawSize(message.header.rawSize);
    const auto raw = restored(chunk, account.compression);
    if (raw) sums.insert(Crc32(raw->data(), raw->size()));
  }
  return sums;
}

void expectSound(const std::string& path, const doctor::SalvageResult& result,
                 std::string_view input) {
  expect(MorvaBag::checkAll(path) == 0, "a salvaged recording fails its check");
  const doctor::Account again = doctor::examine(path, kGoOn);
  // Payloads are kept as they are, also those that are not their topic's kind of message.
  expect(again.headerState == doctor::HeaderState::kSound && again.isDefinitionSound &&
             again.indexState == doctor::IndexState::kSound && again.damage.empty() &&
             again.lost.empty() && again.pointNowhere == 0 && again.notInIndex == 0 &&
             again.repeated == 0 && again.withinDamage == 0,
         "a salvaged recording is not sound");
  expect(again.messages.size() == result.written, "a salvaged message cannot be found again");
  const View all = MorvaBag::getAllView(path, nullptr);
  expect(all.indexes.size() == result.written, "other than the salvaged messages were written");
  expect(result.written + result.unnamed == result.account.messages.size(),
         "messages are neither written nor without a name");

  std::multiset<std::uint32_t> sums = payloadSums(result.account, input);
  BagReader reader;
  expect(reader.open(path) == BagFile::kOpenOk, "a salvaged recording does not open");
  std::string data;
  for (const MsgIndex& index : all.indexes) {
    BagFile::Chunk chunk;
    expect(reader.read(&chunk, static_cast<std::int64_t>(index.chunkOffset), nullptr) >= 0,
           "a salvaged message cannot be read");
    const auto sum = sums.find(Crc32(chunk.data.data(), chunk.data.size()));
    expect(sum != sums.end(), "a payload was salvaged that the input does not hold");
    sums.erase(sum);
  }
}

}  // namespace

void runSalvage(std::string_view input) {
  WorkPlace& place = WorkPlace::get();
  const RecordingInput recording = RecordingInput::parse(input);
  place.put(recording);
  doctor::SalvageOptions options;
  options.inPath = place.bag();
  options.outPath = place.freshOut() + "/salvaged.kbag";
  // Names for recordings that have none; every other time.
  if (input.size() % 2 == 0) options.names = {{0, "/imu"}, {1, "/lidar"}, {2, "/imu"}, {77, "/x"}};
  const doctor::SalvageResult result = doctor::salvage(options, kGoOn);

  const bool exists = std::filesystem::exists(options.outPath);
  expect(exists == result.isDone, "there is an output, or none, against the result");
  expect(!result.isInterrupted, "a salvage says that it was interrupted");
  expect(result.isDone == result.problem.empty(),
         "a failed salvage has no reason, or a done one has");
  expect(nlohmann::json::accept(doctor::jsonOf(result, options, 0)), "a report is no JSON");
  expect(!doctor::textOf(result, options).empty(), "a salvage has no text");
  if (result.isDone) {
    expectTrue(result.account, recording.bag);
    expectSound(options.outPath, result, recording.bag);
  }
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(place.dir() + "/out")) {
    files += entry.path() == options.outPath ? 0U : 1U;
  }
  expect(files == 0, "a salvage leaves other files behind");
  expect(contentsOf(place.bag()) == recording.bag, "a salvage changes its input");
  place.expectNothingElse();
}

}  // namespace morva::fuzz
