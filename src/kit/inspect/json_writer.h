#ifndef MORVA_KIT_INSPECT_JSON_WRITER_H_
#define MORVA_KIT_INSPECT_JSON_WRITER_H_

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace morva::inspect {

/// Appends numbers as text that reads back as the same number, in the fewest digits.
void appendNumber(std::int64_t value, std::string* text);
void appendNumber(std::uint64_t value, std::string* text);
/// Always with a point or an exponent, so that a reader takes it for no integer. "nan", "inf" and
/// "-inf" are not JSON.
void appendNumber(float value, std::string* text);
void appendNumber(double value, std::string* text);

/// Appends `value` as a JSON string. Bytes that are not UTF-8 become U+FFFD.
void appendJsonString(std::string_view value, std::string* text);

/// Writes one JSON value without blanks or line feeds, into memory that is used again.
///
///   json.beginObject().key("messages").value(std::uint64_t{3}).endObject();
///
/// Values that are not finite, and empty optionals, are null.
class JsonWriter {
 public:
  JsonWriter& beginObject() { return open('{'); }
  JsonWriter& endObject() { return close('}'); }
  JsonWriter& beginArray() { return open('['); }
  JsonWriter& endArray() { return close(']'); }
  /// @param name  ASCII without quotes: it is not escaped.
  JsonWriter& key(std::string_view name);

  JsonWriter& null();
  JsonWriter& value(std::same_as<bool> auto flag) { return raw(flag ? "true" : "false"); }
  JsonWriter& value(std::string_view text);
  JsonWriter& value(const char* text) { return value(std::string_view(text)); }
  JsonWriter& value(std::int64_t number);
  JsonWriter& value(std::uint64_t number);
  JsonWriter& value(float number);
  JsonWriter& value(double number);
  template <typename T>
  JsonWriter& value(const std::optional<T>& number) {
    return number ? value(*number) : null();
  }
  /// Text that is JSON already.
  JsonWriter& raw(std::string_view json);

  template <typename T>
  JsonWriter& member(std::string_view name, const T& content) {
    return key(name).value(content);
  }
  /// A moment (us since the Unix epoch): as a number under "<name>_us", and as RFC 3339 text under
  /// `name`, null where there is no such text.
  JsonWriter& moment(std::string_view name, const std::optional<std::int64_t>& timeUs);

  [[nodiscard]] const std::string& text() const { return text_; }
  /// Ends the line; another value may follow.
  void endLine();
  void clear();

 private:
  JsonWriter& open(char bracket);
  JsonWriter& close(char bracket);
  void separate();

  std::string text_;
  bool isFirst_ = true;  ///< no comma before what comes next
};

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_JSON_WRITER_H_
