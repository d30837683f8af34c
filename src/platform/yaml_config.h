#ifndef MORVA_PLATFORM_YAML_CONFIG_H_
#define MORVA_PLATFORM_YAML_CONFIG_H_

#include <memory>
#include <string>
#include <vector>

namespace YAML {  // NOLINT(readability-identifier-naming): the library's own
class Node;
}  // namespace YAML

namespace basalt {

/// One YAML document: read from text and looked up by key, or built up and written to a file.
///
/// Starts as an empty map. Documents come from recordings, so they are hostile until parsed: size
/// and depth are limited, and no exception of the YAML library leaves this class. Numbers are read
/// and written the same way whatever the process's locale. A first line "%YAML:1.0", as
/// computer-vision programs write it, is accepted; of several documents the first one counts.
/// Threads: one at a time.
class YamlConfig {
 public:
  /// Longest document that is read. A calibration takes one or two KiB.
  static constexpr std::size_t kMaxDocumentBytes = 256UL * 1024;

  YamlConfig();
  YamlConfig(const YamlConfig&) = delete;
  YamlConfig& operator=(const YamlConfig&) = delete;
  ~YamlConfig();

  /// Replaces the document by the one in `text`.
  /// @param name  What log lines call the document.
  /// @return False after an error line when `text` is malformed, nested deeper than 500 levels or
  /// longer
  ///         than kMaxDocumentBytes; the document is then an empty map.
  [[nodiscard]] bool fromString(const std::string& text, const std::string& name = "string");

  /// The root of the document: a map in most of them, but that is up to the document.
  [[nodiscard]] const YAML::Node& root() const { return *root_; }

  /// Looks `key` up in `node` and converts its value; T is bool, float or std::vector<float>.
  ///
  /// Bools are the words of YAML 1.1 ("true", "Yes", "off", ...); floats are decimal numbers,
  /// ".inf" and
  /// ".nan"; a list is a sequence of floats in either style.
  /// @param node  root() or a node below it.
  /// @param out   [out, not null] Unchanged on failure.
  /// @return False after an error line when the key is missing or its value is of another type.
  template <typename T>
  [[nodiscard]] bool get(const std::string& key, T* out, const YAML::Node& node) const;

  /// Sets `key` of the root map; T as for get(). New keys come last.
  template <typename T>
  void set(const std::string& key, const T& value);

  /// Writes the document to `path`, which is replaced.
  /// @param indent  Spaces a level; -1: 2.
  /// @param digits  Significant digits, 1 to 17, to which numbers of the root map and of its lists
  /// are
  ///                rounded where they have a decimal point or an exponent; -1: as they stand,
  ///                which for those of set() means the fewest digits that read back to the same
  ///                value.
  /// Lists of set() are written in flow style, "[1.0, 2.0]"; what was read keeps its style.
  /// @return False after an error line; no file of that name is left then.
  [[nodiscard]] bool toFile(const std::string& path, int indent, int digits) const;

 private:
  [[nodiscard]] bool toText(int indent, int digits, std::string* text) const;

  std::string name_ = "string";
  std::unique_ptr<YAML::Node> root_;
};

}  // namespace basalt

#endif  // MORVA_PLATFORM_YAML_CONFIG_H_
