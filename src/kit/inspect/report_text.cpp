#include "kit/inspect/report_text.h"

#include <optional>
#include <utility>
#include <vector>

#include "kit/console.h"
#include "kit/doctor/report_words.h"
#include "kit/inspect/sample_table.h"
#include "kit/inspect/text_table.h"
#include "kit/inspect/utc_text.h"
#include "platform/str_util.h"

namespace morva::inspect {
namespace {

using kit::printable;
using osmik::StrUtil;

constexpr double kUsPerMs = 1000.0;
constexpr double kBytesPerMb = 1e6;
constexpr const char* kNone = "-";

std::string line(const char* name, const std::string& text) {
  return StrUtil::format("  %-10s %s\n", name, text);
}

/// A moment; by its number where the calendar has none for it.
std::string momentText(std::int64_t timeUs) {
  std::string text = utcText(timeUs);
  return text.empty() ? StrUtil::format("%lld us", timeUs) : text;
}

std::string milliseconds(double us) { return StrUtil::format("%.3f", us / kUsPerMs); }

std::string ratioText(const Amounts& amounts) {
  const std::optional<double> ratio = amounts.compressionRatio();
  return ratio ? StrUtil::format("%.2f", *ratio) : kNone;
}

std::string fileText(const Recording& recording) {
  const BagFile::Header& header = recording.header();
  std::string text =
      StrUtil::format("%llu bytes, format %u, compression %s, %s", recording.fileBytes(),
                      header.version(), doctor::compressionName(header.compression()),
                      header.indexChunkOffset() != 0 ? "closed" : "not closed");
  switch (recording.indexSource()) {
    case IndexSource::kSideFile:
      return text + ", index in the side file";
    case IndexSource::kScan:
      return text + StrUtil::format(", scanned up to byte %llu", recording.scannedBytes());
    case IndexSource::kRecording:
    case IndexSource::kNone:
      break;
  }
  return text;
}

std::string deviceText(const DeviceInfo& device) {
  const std::vector<std::pair<const char*, const std::string*>> parts = {
      {"", &device.deviceName},
      {"model ", &device.deviceModel},
      {"serial number ", &device.serialNumber},
      {"hardware ", &device.hardwareVersion},
      {"firmware ", &device.firmwareVersion},
      {"software ", &device.softwareVersion},
      {"made ", &device.manufactureDate}};
  std::string text;
  for (const auto& [what, value] : parts) {
    if (value->empty()) continue;
    text += (text.empty() ? "" : ", ") + (what + printable(*value));
  }
  return text;
}

std::string limitsText(const TimeWindow& window) {
  std::string text;
  if (window.fromUs) text = "from " + momentText(*window.fromUs);
  if (window.toUs) text += (text.empty() ? "before " : " until before ") + momentText(*window.toUs);
  return text;
}

std::string amountsText(const Amounts& amounts) {
  return StrUtil::format("%llu with %llu samples, %llu bytes, stored in %llu", amounts.messages,
                         amounts.samples, amounts.rawBytes, amounts.storedBytes) +
         (amounts.storedBytes == 0 ? "" : " (ratio " + ratioText(amounts) + ")");
}

std::vector<std::string> stepCells(const std::optional<StepSpread>& steps) {
  if (!steps) return {kNone, kNone, kNone, kNone};
  return {milliseconds(steps->medianUs), milliseconds(steps->deviationUs),
          milliseconds(static_cast<double>(steps->minUs)),
          milliseconds(static_cast<double>(steps->maxUs))};
}

std::vector<std::string> cellsOf(const TopicSummary& topic) {
  std::vector<std::string> cells = {
      printable(topic.topic.name), std::string(wordFor(topic.kind)),
      std::to_string(topic.amounts.messages), std::to_string(topic.amounts.samples),
      topic.rates ? StrUtil::format("%.2f", topic.rates->messagesHz) : kNone};
  for (std::string& cell : stepCells(topic.steps)) cells.push_back(std::move(cell));
  cells.push_back(std::to_string(topic.gaps.size()));
  cells.push_back(
      StrUtil::format("%.3f", static_cast<double>(topic.amounts.rawBytes) / kBytesPerMb));
  cells.push_back(ratioText(topic.amounts));
  return cells;
}

}  // namespace

std::string titleText(const Recording& recording) { return printable(recording.path()) + "\n"; }

std::string infoText(const Recording& recording, const Summary& summary) {
  std::string text = titleText(recording) + line("file", fileText(recording));
  const auto createdUs = static_cast<std::int64_t>(recording.header().creationTime());
  text += line("created", momentText(createdUs));
  if (const auto device = recording.device()) text += line("device", deviceText(*device));
  if (summary.window.isLimited()) text += line("limits", limitsText(summary.window));
  text += line("messages", amountsText(summary.amounts));
  if (summary.span) {
    text +=
        line("span", StrUtil::format("%s to %s, %.6f s", momentText(summary.span->startUs),
                                     momentText(summary.span->endUs), secondsOf(*summary.span)));
  }
  return text + topicsText(summary);
}

std::string topicsText(const Summary& summary) {
  TextTable table({"topic", "kind", "messages", "samples", "rate Hz", "step ms", "stddev", "min",
                   "max", "gaps", "MB", "ratio"});
  for (const TopicSummary& topic : summary.topics) table.add(cellsOf(topic));
  return table.text();
}

std::string messagesHeading() {
  return kit::heading(StrUtil::format("  %-27s  %-22s %8s %10s %10s %14s", "time", "topic",
                                      "samples", "bytes", "stored", "at byte")) +
         "\n";
}

std::string messageText(const ListedMessage& message) {
  const BagFile::TopicHeader& entry = *message.entry;
  return StrUtil::format("  %-27s  %-22s %8u %10u %10u %14llu\n", momentText(entry.headerTimes[0]),
                         printable(message.topic->name), entry.count, entry.rawSize,
                         entry.storedSize, message.chunkOffset);
}

}  // namespace morva::inspect
