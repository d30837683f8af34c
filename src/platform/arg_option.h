#ifndef MORVA_PLATFORM_ARG_OPTION_H_
#define MORVA_PLATFORM_ARG_OPTION_H_

#include <cstddef>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace osmik {

/// A parsed command line: options by key, positional words under the empty key.
///
/// A key is an option word without its dashes; "-x" and "--x" name the same key. A word that starts
/// with "-" and goes on with a digit is a value. "--key=value" gives exactly that value. A repeated
/// option adds to its values. An option takes the words that follow it, up to the next option, as
/// far as setMaxValues allows; one that was not named there takes none.
class ArgOption {
 public:
  static constexpr std::size_t kAllValues = std::numeric_limits<std::size_t>::max();

  void setMaxValues(const std::string& key, std::size_t count) { maxValues_[key] = count; }

  /// @return False for a lone "-" or "--" or an option without a name ("--=x").
  [[nodiscard]] bool parseArgs(int argc, const char* const* argv);

  /// Number of values of an option, 0 for a bare flag; negative when it is absent.
  [[nodiscard]] int hasOption(const std::string& key) const;
  /// Values of an option in order; empty when it is absent.
  [[nodiscard]] std::vector<std::string> operator[](const std::string& key) const;
  [[nodiscard]] std::vector<std::string> getValue(const std::string& key) const;

 private:
  [[nodiscard]] std::size_t maxValues(const std::string& key) const;

  std::map<std::string, std::size_t> maxValues_;
  std::map<std::string, std::vector<std::string>> values_;
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_ARG_OPTION_H_
