#include "platform/arg_option.h"

#include <string_view>

namespace osmik {
namespace {

bool isOption(std::string_view word) {
  if (word.empty() || word[0] != '-') return false;
  const bool isNegativeNumber = word.size() > 1 && word[1] >= '0' && word[1] <= '9';
  return !isNegativeNumber;
}

}  // namespace

bool ArgOption::parseArgs(int argc, const char* const* argv) {
  std::string open;  // the option that following words are values of
  std::size_t room = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (!isOption(word)) {
      const bool isValue = room > 0;
      values_[isValue ? open : std::string()].emplace_back(word);
      if (isValue) --room;
      continue;
    }
    std::string_view name = word.substr(word.starts_with("--") ? 2 : 1);
    const std::size_t equals = name.find('=');
    open = name.substr(0, equals);
    if (open.empty()) return false;
    std::vector<std::string>& values = values_[open];
    if (equals == std::string_view::npos) {
      room = maxValues(open);
    } else {
      values.emplace_back(name.substr(equals + 1));
      room = 0;
    }
  }
  return true;
}

std::size_t ArgOption::maxValues(const std::string& key) const {
  const auto found = maxValues_.find(key);
  return found == maxValues_.end() ? 0 : found->second;
}

int ArgOption::hasOption(const std::string& key) const {
  const auto found = values_.find(key);
  return found == values_.end() ? -1 : static_cast<int>(found->second.size());
}

std::vector<std::string> ArgOption::operator[](const std::string& key) const {
  const auto found = values_.find(key);
  return found == values_.end() ? std::vector<std::string>() : found->second;
}

std::vector<std::string> ArgOption::getValue(const std::string& key) const { return (*this)[key]; }

}  // namespace osmik
