#include "kit/inspect/report_json.h"

#include <optional>
#include <string>
#include <vector>

#include "kit/doctor/report_words.h"
#include "kit/inspect/sample_table.h"
#include "kit/inspect/schemas.h"

namespace morva::inspect {
namespace {

std::optional<std::int64_t> startOf(const std::optional<TimeSpan>& span) {
  if (!span) return std::nullopt;
  return span->startUs;
}

std::optional<std::int64_t> endOf(const std::optional<TimeSpan>& span) {
  if (!span) return std::nullopt;
  return span->endUs;
}

void addSpan(const std::optional<TimeSpan>& span, JsonWriter* json) {
  json->moment("start", startOf(span)).moment("end", endOf(span)).key("duration_s");
  if (span) {
    json->value(secondsOf(*span));
  } else {
    json->null();
  }
}

void addAmounts(const Amounts& amounts, JsonWriter* json) {
  json->member("messages", amounts.messages)
      .member("samples", amounts.samples)
      .member("raw_bytes", amounts.rawBytes)
      .member("stored_bytes", amounts.storedBytes)
      .member("compression_ratio", amounts.compressionRatio());
}

void addDevice(const Recording& recording, JsonWriter* json) {
  json->key("device");
  const std::optional<DeviceInfo> device = recording.device();
  if (!device) {
    json->null();
    return;
  }
  json->beginObject()
      .member("device_name", device->deviceName)
      .member("device_model", device->deviceModel)
      .member("serial_number", device->serialNumber)
      .member("hardware_version", device->hardwareVersion)
      .member("firmware_version", device->firmwareVersion)
      .member("software_version", device->softwareVersion)
      .member("manufacture_date", device->manufactureDate)
      .key("sensors")
      .beginArray();
  for (const std::string& sensor : device->sensors) json->value(sensor);
  json->endArray().endObject();
}

void addHeader(const Recording& recording, JsonWriter* json) {
  const BagFile::Header& header = recording.header();
  json->member("bytes", recording.fileBytes())
      .member("format_version", std::uint64_t{header.version()})
      .member("compression", doctor::compressionName(header.compression()))
      .moment("created", static_cast<std::int64_t>(header.creationTime()))
      .member("closed", header.indexChunkOffset() != 0);
  addDevice(recording, json);
}

void addSource(const Recording& recording, JsonWriter* json) {
  std::optional<std::uint64_t> scanned;
  if (recording.indexSource() == IndexSource::kScan) scanned = recording.scannedBytes();
  json->member("index", wordFor(recording.indexSource())).member("scanned_bytes", scanned);
}

void addSelection(const Selection& selection, const TimeWindow& window, JsonWriter* json) {
  json->key("selection").beginObject().key("topics").beginArray();
  for (const std::string& pattern : selection.topics) json->value(pattern);
  json->endArray().moment("from", window.fromUs).moment("to", window.toUs).endObject();
}

void addRates(const std::optional<Rates>& rates, JsonWriter* json) {
  json->key("rate");
  if (!rates) {
    json->null();
    return;
  }
  json->beginObject()
      .member("messages_hz", rates->messagesHz)
      .member("samples_hz", rates->samplesHz)
      .member("raw_bytes_per_s", rates->rawBytesPerS)
      .endObject();
}

void addSteps(const std::optional<StepSpread>& steps, JsonWriter* json) {
  json->key("steps");
  if (!steps) {
    json->null();
    return;
  }
  json->beginObject()
      .member("count", steps->count)
      .member("median_us", steps->medianUs)
      .member("mean_us", steps->meanUs)
      .member("stddev_us", steps->deviationUs)
      .member("min_us", steps->minUs)
      .member("max_us", steps->maxUs)
      .endObject();
}

void addGaps(const std::vector<doctor::Gap>& gaps, JsonWriter* json) {
  json->key("gaps").beginArray();
  for (const doctor::Gap& gap : gaps) {
    json->beginObject()
        .moment("from", gap.fromUs)
        .moment("to", gap.toUs)
        .member("missing", gap.missing)
        .endObject();
  }
  json->endArray();
}

void addTopic(const TopicSummary& topic, JsonWriter* json) {
  json->member("topic", topic.topic.name)
      .member("topic_id", std::uint64_t{topic.topic.id})
      .member("kind", wordFor(topic.kind));
  addAmounts(topic.amounts, json);
  addSpan(topic.span, json);
  addRates(topic.rates, json);
  addSteps(topic.steps, json);
  json->member("period_us", topic.periodUs);
  addGaps(topic.gaps, json);
  json->member("steps_back", topic.stepsBack);
}

void addFields(MessageKind kind, JsonWriter* json) {
  const auto table = makeSampleTable(kind, {});
  json->key("fields").beginArray();
  for (const Field& field : table->fields()) {
    json->beginObject().member("name", field.name).key("unit");
    if (field.unit.empty()) {
      json->null();
    } else {
      json->value(field.unit);
    }
    json->endObject();
  }
  json->endArray();
}

void addProblem(const Problem& problem, JsonWriter* json) {
  json->key("error")
      .beginObject()
      .member("code", problem.code)
      .member("message", problem.message)
      .endObject();
}

JsonWriter& begin(std::string_view schema, const Recording& recording, JsonWriter* json) {
  return json->beginObject().member("schema", schema).member("bag", recording.path());
}

}  // namespace

void writeInfo(const Recording& recording, const Selection& selection, const Summary& summary,
               JsonWriter* json) {
  begin(kInfoSchema, recording, json);
  addHeader(recording, json);
  addSource(recording, json);
  addSelection(selection, summary.window, json);
  addAmounts(summary.amounts, json);
  addSpan(summary.span, json);
  json->key("topics").beginArray();
  for (const TopicSummary& topic : summary.topics) {
    json->beginObject();
    addTopic(topic, json);
    json->endObject();
  }
  json->endArray().endObject().endLine();
}

void writeTopic(const Recording& recording, const TopicSummary& topic, JsonWriter* json) {
  begin(kTopicsSchema, recording, json);
  addTopic(topic, json);
  addFields(topic.kind, json);
  json->endObject().endLine();
}

void writeMessage(const Recording& recording, const ListedMessage& message, JsonWriter* json) {
  const BagFile::TopicHeader& entry = *message.entry;
  begin(kMessagesSchema, recording, json)
      .member("topic", message.topic->name)
      .member("topic_id", std::uint64_t{message.topic->id})
      .moment("time", entry.headerTimes[0])
      .moment("second_time", entry.headerTimes[1])
      .moment("write_time", entry.time)
      .member("samples", std::uint64_t{entry.count})
      .member("raw_bytes", std::uint64_t{entry.rawSize})
      .member("stored_bytes", std::uint64_t{entry.storedSize})
      .member("offset", message.chunkOffset)
      .endObject()
      .endLine();
}

void writeFailedInfo(const Recording& recording, const Problem& problem, JsonWriter* json) {
  begin(kInfoSchema, recording, json);
  if (recording.hasHeader()) addHeader(recording, json);
  addProblem(problem, json);
  json->endObject().endLine();
}

void writeFailure(std::string_view schema, const Recording& recording, const Problem& problem,
                  JsonWriter* json) {
  begin(schema, recording, json);
  addProblem(problem, json);
  json->endObject().endLine();
}

}  // namespace morva::inspect
