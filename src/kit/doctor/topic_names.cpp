#include "kit/doctor/topic_names.h"

#include <charconv>
#include <cstddef>
#include <string_view>

#include "kit/doctor/byte_source.h"
#include "platform/str_util.h"
#include "storage/bag_layout.h"

namespace morva::doctor {
namespace {

using osmik::StrUtil;

/// Splits a text at a separator, spaces around the pieces and empty pieces left out.
std::vector<std::string_view> piecesOf(std::string_view text, char separator) {
  constexpr std::string_view kSpaces = " \t\r";
  std::vector<std::string_view> pieces;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(separator), text.size());
    std::string_view piece = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    piece.remove_prefix(std::min(piece.find_first_not_of(kSpaces), piece.size()));
    piece = piece.substr(0, piece.find_last_not_of(kSpaces) + 1);
    if (!piece.empty()) pieces.push_back(piece);
  }
  return pieces;
}

std::string addName(std::string_view text, TopicNames* names) {
  const std::size_t equals = text.find('=');
  std::uint32_t id = 0;
  const char* const end = text.data() + std::min(equals, text.size());
  const auto [stop, error] = std::from_chars(text.data(), end, id);
  if (equals == std::string_view::npos || error != std::errc() || stop != end) {
    return StrUtil::format("\"%s\" is not ID=NAME", text);
  }
  const std::string name(text.substr(equals + 1));
  if (name.empty() || name.size() >= layout::kTopicNameBytes) {
    return StrUtil::format("the name of topic %u has not 1 to %u characters", id,
                           layout::kTopicNameBytes - 1);
  }
  if (!names->emplace(id, name).second) return StrUtil::format("topic %u has two names", id);
  return {};
}

std::string addFile(const std::string& path, TopicNames* names) {
  constexpr std::uint64_t kMaxBytes = 1024UL * 1024;
  ByteSource file;
  if (!file.open(path)) return StrUtil::format("%s cannot be read, and is not ID=NAME", path);
  if (file.size() > kMaxBytes) return StrUtil::format("%s is too large", path);
  const std::string text = file.read(0, static_cast<std::size_t>(file.size()));
  for (const std::string_view line : piecesOf(text, '\n')) {
    if (line.starts_with('#')) continue;
    const std::string problem = addName(line, names);
    if (!problem.empty()) return StrUtil::format("%s: %s", path, problem);
  }
  return {};
}

}  // namespace

std::string readTopicNames(const std::vector<std::string>& words, TopicNames* names) {
  for (const std::string& word : words) {
    if (word.find('=') == std::string::npos) {
      if (std::string problem = addFile(word, names); !problem.empty()) return problem;
      continue;
    }
    for (const std::string_view piece : piecesOf(word, ',')) {
      if (std::string problem = addName(piece, names); !problem.empty()) return problem;
    }
  }
  return {};
}

}  // namespace morva::doctor
