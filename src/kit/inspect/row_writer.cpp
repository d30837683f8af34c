#include "kit/inspect/row_writer.h"

#include <cstddef>
#include <string_view>
#include <type_traits>
#include <variant>

#include "kit/inspect/base64.h"
#include "kit/inspect/schemas.h"
#include "kit/inspect/utc_text.h"

namespace morva::inspect {
namespace {

/// In quotes where a comma, a quote or a line break would not survive.
void appendCsvText(std::string_view value, std::string* line) {
  if (value.find_first_of(",\"\r\n") == std::string_view::npos) {
    *line += value;
    return;
  }
  *line += '"';
  for (const char c : value) {
    if (c == '"') *line += '"';
    *line += c;
  }
  *line += '"';
}

}  // namespace

const std::string& NdjsonRows::header(const SampleTable& /*table*/) {
  json_.clear();
  return json_.text();
}

const std::string& NdjsonRows::row(const ListedMessage& message, const SampleTable& table,
                                   const Row& row) {
  json_.clear();
  json_.beginObject()
      .member("schema", kCatSchema)
      .member("topic", message.topic->name)
      .member("kind", table.name());
  if (row.seq) json_.member("seq", std::uint64_t{*row.seq});
  json_.moment("time", row.timeUs);
  for (std::size_t i = 0; i < row.values.size(); ++i) {
    json_.key(table.fields()[i].name);
    add(row.values[i]);
  }
  json_.endObject().endLine();
  return json_.text();
}

void NdjsonRows::add(const Value& value) {
  std::visit(
      [this](const auto& content) {
        if constexpr (std::is_same_v<std::decay_t<decltype(content)>, Bytes>) {
          scratch_.clear();
          appendBase64(content.bytes, &scratch_);
          json_.value(std::string_view(scratch_));
        } else {
          json_.value(content);
        }
      },
      value);
}

const std::string& NdjsonRows::problem(const ListedMessage& message, const Problem& problem) {
  json_.clear();
  json_.beginObject()
      .member("schema", kCatSchema)
      .member("topic", message.topic->name)
      .member("kind", "error")
      .moment("time", message.entry->headerTimes[0])
      .member("offset", message.chunkOffset)
      .key("error")
      .beginObject()
      .member("code", problem.code)
      .member("message", problem.message)
      .endObject()
      .endObject()
      .endLine();
  return json_.text();
}

const std::string& CsvRows::header(const SampleTable& table) {
  line_ = "topic,seq,time_us,time";
  for (const Field& field : table.fields()) {
    line_ += ',';
    line_ += field.name;
  }
  line_ += '\n';
  return line_;
}

const std::string& CsvRows::row(const ListedMessage& message, const SampleTable& /*table*/,
                                const Row& row) {
  const std::int64_t timeUs = row.timeUs.value_or(0);
  line_.clear();
  appendCsvText(message.topic->name, &line_);
  line_ += ',';
  if (row.seq) appendNumber(std::uint64_t{*row.seq}, &line_);
  line_ += ',';
  appendNumber(timeUs, &line_);
  line_ += ',';
  line_ += utcText(timeUs);
  for (const Value& value : row.values) {
    line_ += ',';
    add(value);
  }
  line_ += '\n';
  return line_;
}

void CsvRows::add(const Value& value) {
  std::visit(
      [this](const auto& content) {
        using Content = std::decay_t<decltype(content)>;
        if constexpr (std::is_same_v<Content, Bytes>) {
          appendBase64(content.bytes, &line_);
        } else if constexpr (std::is_same_v<Content, std::string_view>) {
          appendCsvText(content, &line_);
        } else {
          appendNumber(content, &line_);
        }
      },
      value);
}

const std::string& CsvRows::problem(const ListedMessage& /*message*/, const Problem& /*problem*/) {
  line_.clear();
  return line_;
}

}  // namespace morva::inspect
