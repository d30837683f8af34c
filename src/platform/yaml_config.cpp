#include "platform/yaml_config.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <limits>
#include <string_view>
#include <system_error>

#include <yaml-cpp/yaml.h>

#include "platform/file.h"
#include "platform/log.h"

namespace basalt {
namespace {

constexpr int kDefaultIndent = 2;

const morva::Log& logger() {
  static const morva::Log log("YamlConfig");
  return log;
}

// A function template would log its arguments too.
const morva::Log& getLogger() {
  static const morva::Log log("YamlConfig", "get");
  return log;
}

// The library converts numbers with the process's locale, in which "1.5" may not be a number.
template <typename T>
std::errc parseNumber(std::string_view text, T* value) {
  if (text.find_first_not_of("0123456789+-.eE") != std::string_view::npos) {  // "inf", "0x1"
    return std::errc::invalid_argument;
  }
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::errc::invalid_argument;
  }
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, *value);
  return parsed == end ? error : std::errc::invalid_argument;
}

// A number too small for a float is 0; one that is too large is refused.
bool parseDecimal(std::string_view text, float* value) {
  const std::errc error = parseNumber(text, value);
  if (error != std::errc::result_out_of_range) return error == std::errc();
  long double wide = 0.0L;
  if (parseNumber(text, &wide) != std::errc() || std::abs(wide) > 1.0L) return false;
  *value = static_cast<float>(wide);
  return true;
}

bool isAny(std::string_view text, std::initializer_list<std::string_view> words) {
  return std::ranges::find(words, text) != words.end();
}

bool parseFloat(std::string_view text, float* value) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  if (isAny(text, {".inf", ".Inf", ".INF", "+.inf", "+.Inf", "+.INF"})) {
    *value = kInfinity;
  } else if (isAny(text, {"-.inf", "-.Inf", "-.INF"})) {
    *value = -kInfinity;
  } else if (isAny(text, {".nan", ".NaN", ".NAN"})) {
    *value = std::numeric_limits<float>::quiet_NaN();
  } else {
    return parseDecimal(text, value);
  }
  return true;
}

// The fewest digits that read back; always with a decimal point, so that readers of every YAML
// version take it for a number ("1e-05" is text to those of version 1.1).
std::string numberText(float value) {
  if (std::isnan(value)) return ".nan";
  if (std::isinf(value)) return value > 0 ? ".inf" : "-.inf";
  std::array<char, 32> buffer{};
  const auto end = std::to_chars(buffer.begin(), buffer.end(), value).ptr;
  std::string text(buffer.begin(), end);
  if (text.find('.') == std::string::npos) text.insert(std::min(text.find('e'), text.size()), ".0");
  return text;
}

std::string roundedText(const std::string& text, int digits) {
  double value = 0.0;
  if (text.find_first_of(".eE") == std::string::npos || parseNumber(text, &value) != std::errc()) {
    return text;
  }
  std::array<char, 64> buffer{};
  const auto [end, error] =
      std::to_chars(buffer.begin(), buffer.end(), value, std::chars_format::general, digits);
  if (error != std::errc()) return text;
  std::string rounded(buffer.begin(), end);
  if (rounded.find('.') == std::string::npos) {
    rounded.insert(std::min(rounded.find('e'), rounded.size()), ".0");
  }
  return rounded;
}

template <typename T>
T convert(const YAML::Node& value);

template <>
bool convert(const YAML::Node& value) {
  return value.as<bool>();
}

template <>
float convert(const YAML::Node& value) {
  float number = 0.0F;
  if (value.IsScalar() && parseFloat(value.Scalar(), &number)) return number;
  throw YAML::TypedBadConversion<float>(value.Mark());
}

template <>
std::vector<float> convert(const YAML::Node& value) {
  if (!value.IsSequence()) throw YAML::TypedBadConversion<std::vector<float>>(value.Mark());
  std::vector<float> numbers;
  numbers.reserve(value.size());
  for (const YAML::Node& item : value) numbers.push_back(convert<float>(item));
  return numbers;
}

YAML::Node encode(bool value) { return YAML::Node(value); }

YAML::Node encode(float value) {
  YAML::Node node(numberText(value));
  node.SetTag("?");  // as if it had been read
  return node;
}

YAML::Node encode(const std::vector<float>& values) {
  YAML::Node node(YAML::NodeType::Sequence);
  node.SetStyle(YAML::EmitterStyle::Flow);
  for (const float value : values) node.push_back(encode(value));
  return node;
}

void roundNumber(YAML::Node number, int digits) {
  constexpr std::string_view kPlain = "?";  // not in quotes
  if (number.IsScalar() && number.Tag() == kPlain) number = roundedText(number.Scalar(), digits);
}

// Rounds the numbers of a map, and those in its lists.
void roundNumbers(const YAML::Node& map, int digits) {
  for (const auto& entry : map) {
    roundNumber(entry.second, digits);
    if (!entry.second.IsSequence()) continue;
    for (const YAML::Node& item : entry.second) roundNumber(item, digits);
  }
}

bool writeWhole(const std::string& path, const std::string& text) {
  osmik::File file;
  if (!file.open(path, osmik::OpenMode::kWrite)) return false;
  const bool written = file.write(text) == static_cast<std::int64_t>(text.size());
  int reason = errno;
  const bool closed = file.close();
  if (written && closed) return true;
  if (written) reason = errno;
  osmik::File::remove(path);
  errno = reason;
  return false;
}

}  // namespace

YamlConfig::YamlConfig() : root_(std::make_unique<YAML::Node>(YAML::NodeType::Map)) {}

YamlConfig::~YamlConfig() = default;

bool YamlConfig::fromString(const std::string& text, const std::string& name) {
  name_ = name;
  root_ = std::make_unique<YAML::Node>(YAML::NodeType::Map);
  if (text.size() > kMaxDocumentBytes) {
    logger().error("doc(%s) is too long: %d > %d bytes!", name_, text.size(), kMaxDocumentBytes);
    return false;
  }
  try {
    *root_ = YAML::Load(text);
    return true;
  } catch (const std::exception& exception) {
    logger().error("parse doc(%s) error: %s!", name_, exception.what());
    return false;
  }
}

template <typename T>
bool YamlConfig::get(const std::string& key, T* out, const YAML::Node& node) const {
  try {
    const YAML::Node value = node[key];
    if (!value.IsDefined()) throw YAML::InvalidNode(key);
    *out = convert<T>(value);
    return true;
  } catch (const std::exception& exception) {
    getLogger().error("doc(%s) get key[%s] value error: %s!", name_, key, exception.what());
    return false;
  }
}

template bool YamlConfig::get(const std::string&, bool*, const YAML::Node&) const;
template bool YamlConfig::get(const std::string&, float*, const YAML::Node&) const;
template bool YamlConfig::get(const std::string&, std::vector<float>*, const YAML::Node&) const;

template <typename T>
void YamlConfig::set(const std::string& key, const T& value) {
  if (!root_->IsMap()) *root_ = YAML::Node(YAML::NodeType::Map);
  (*root_)[key] = encode(value);
}

template void YamlConfig::set(const std::string&, const bool&);
template void YamlConfig::set(const std::string&, const float&);
template void YamlConfig::set(const std::string&, const std::vector<float>&);

bool YamlConfig::toText(int indent, int digits, std::string* text) const {
  YAML::Node document = *root_;
  if (digits > 0) {
    document.reset(YAML::Clone(document));
    if (document.IsMap()) roundNumbers(document, digits);
  }
  YAML::Emitter emitter;
  if (!emitter.SetIndent(static_cast<std::size_t>(indent < 0 ? kDefaultIndent : indent)))
    return false;
  emitter << document;
  if (!emitter.good()) return false;
  text->assign(emitter.c_str(), emitter.size());
  text->push_back('\n');
  return true;
}

bool YamlConfig::toFile(const std::string& path, int indent, int digits) const {
  try {
    std::string text;
    if (!toText(indent, digits, &text)) {
      logger().error("doc(%s) cannot be written as text!", name_);
      return false;
    }
    if (writeWhole(path, text)) return true;
    logger().error("write file(%s) error: %s!", path, std::strerror(errno));
  } catch (const std::exception& exception) {
    logger().error("write doc(%s) error: %s!", name_, exception.what());
  }
  return false;
}

}  // namespace basalt
