#include "kit/inspect/json_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include <nlohmann/json.hpp>

#include "kit/inspect/utc_text.h"

namespace morva::inspect {
namespace {

template <typename T>
std::string_view toText(T value, std::array<char, 32>* buffer) {
  const auto result = std::to_chars(buffer->data(), buffer->data() + buffer->size(), value);
  return {buffer->data(), static_cast<std::size_t>(result.ptr - buffer->data())};
}

template <typename T>
void appendInteger(T value, std::string* text) {
  std::array<char, 32> buffer{};
  *text += toText(value, &buffer);
}

template <typename T>
void appendReal(T value, std::string* text) {
  if (std::isnan(value)) {
    *text += "nan";  // whatever its sign
    return;
  }
  std::array<char, 32> buffer{};
  const std::string_view digits = toText(value, &buffer);
  *text += digits;
  if (std::isfinite(value) && digits.find_first_of(".e") == std::string_view::npos) *text += ".0";
}

/// ASCII that needs no escape.
bool isPlain(char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; }

}  // namespace

void appendNumber(std::int64_t value, std::string* text) { appendInteger(value, text); }
void appendNumber(std::uint64_t value, std::string* text) { appendInteger(value, text); }
void appendNumber(float value, std::string* text) { appendReal(value, text); }
void appendNumber(double value, std::string* text) { appendReal(value, text); }

void appendJsonString(std::string_view value, std::string* text) {
  if (!std::ranges::all_of(value, isPlain)) {
    using nlohmann::json;
    *text += json(value).dump(-1, ' ', false, json::error_handler_t::replace);
    return;
  }
  *text += '"';
  *text += value;
  *text += '"';
}

JsonWriter& JsonWriter::key(std::string_view name) {
  separate();
  text_ += '"';
  text_ += name;
  text_ += "\":";
  isFirst_ = true;
  return *this;
}

JsonWriter& JsonWriter::null() { return raw("null"); }

JsonWriter& JsonWriter::value(std::string_view text) {
  separate();
  appendJsonString(text, &text_);
  return *this;
}

JsonWriter& JsonWriter::value(std::int64_t number) {
  separate();
  appendNumber(number, &text_);
  return *this;
}

JsonWriter& JsonWriter::value(std::uint64_t number) {
  separate();
  appendNumber(number, &text_);
  return *this;
}

JsonWriter& JsonWriter::value(float number) {
  if (!std::isfinite(number)) return null();
  separate();
  appendNumber(number, &text_);
  return *this;
}

JsonWriter& JsonWriter::value(double number) {
  if (!std::isfinite(number)) return null();
  separate();
  appendNumber(number, &text_);
  return *this;
}

JsonWriter& JsonWriter::raw(std::string_view json) {
  separate();
  text_ += json;
  return *this;
}

JsonWriter& JsonWriter::moment(std::string_view name, const std::optional<std::int64_t>& timeUs) {
  const std::string text = timeUs ? utcText(*timeUs) : std::string();
  member(std::string(name) + "_us", timeUs).key(name);
  return text.empty() ? null() : value(text);
}

void JsonWriter::endLine() {
  text_ += '\n';
  isFirst_ = true;
}

void JsonWriter::clear() {
  text_.clear();
  isFirst_ = true;
}

JsonWriter& JsonWriter::open(char bracket) {
  separate();
  text_ += bracket;
  isFirst_ = true;
  return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
  text_ += bracket;
  isFirst_ = false;
  return *this;
}

void JsonWriter::separate() {
  if (!isFirst_) text_ += ',';
  isFirst_ = false;
}

}  // namespace morva::inspect
