#include "messages/crowded_payload.h"

#include <algorithm>
#include <cstdint>

namespace morva {
namespace {

constexpr std::size_t kSamples = 1024;
constexpr std::size_t kFields = 1'000'000;
constexpr std::size_t kFieldsPerByte = 4;
/// Tag and value, or tag and length.
constexpr std::size_t kMinFieldBytes = 2;

/// The fields of a serialized message, one after another, as far as they are well formed.
class Fields {
 public:
  explicit Fields(std::string_view bytes) : bytes_(bytes) {}

  /// @param content  [out] Of a field that has a length; empty for others. The fields of a group
  ///                 come like any others behind its beginning, which is a field itself.
  [[nodiscard]] bool next(std::string_view* content) {
    *content = {};
    while (!bytes_.empty()) {
      std::uint64_t tag = 0;
      if (!takeNumber(&tag)) return false;
      switch (tag & 7) {
        case kNumber:
          return takeNumber(&tag);
        case kEightBytes:
          return take(8) != nullptr;
        case kSized:
          return takeNumber(&tag) && takeSized(tag, content);
        case kGroupBegin:
          return true;
        case kGroupEnd:
          continue;
        case kFourBytes:
          return take(4) != nullptr;
        default:
          return false;
      }
    }
    return false;
  }

 private:
  // How a field is coded, in the lowest bits of its tag.
  enum Coding : std::uint8_t {
    kNumber = 0,
    kEightBytes = 1,
    kSized = 2,
    kGroupBegin = 3,
    kGroupEnd = 4,
    kFourBytes = 5,
  };

  bool takeNumber(std::uint64_t* value) {
    constexpr unsigned kBits = 64;
    *value = 0;
    for (unsigned shift = 0; shift < kBits && !bytes_.empty(); shift += 7) {
      const auto byte = static_cast<std::uint8_t>(bytes_.front());
      bytes_.remove_prefix(1);
      *value |= static_cast<std::uint64_t>(byte & 0x7FU) << shift;
      if (byte < 0x80) return true;
    }
    return false;
  }

  /// @return Where the bytes taken begin; null where there are fewer.
  const char* take(std::uint64_t size) {
    if (size > bytes_.size()) return nullptr;
    const char* const begin = bytes_.data();
    bytes_.remove_prefix(size);
    return begin;
  }

  bool takeSized(std::uint64_t size, std::string_view* content) {
    const char* const begin = take(size);
    if (begin == nullptr) return false;
    *content = {begin, size};
    return true;
  }

  std::string_view bytes_;
};

}  // namespace

bool isCrowded(std::string_view payload, std::size_t storedBytes) {
  const std::size_t mostSamples = std::max(kSamples, storedBytes);
  const std::size_t mostFields = std::max(kFields, kFieldsPerByte * storedBytes);
  const std::size_t most = payload.size() / kMinFieldBytes;
  if (most <= mostSamples) return false;
  const bool countsFields = most > mostFields;
  std::size_t samples = 0;
  std::size_t fields = 0;
  std::string_view sample;
  for (Fields all(payload); all.next(&sample);) {
    if (++samples > mostSamples) return true;
    if (!countsFields) continue;
    std::string_view content;
    for (Fields inner(sample); inner.next(&content);) {
      if (++fields > mostFields) return true;
    }
  }
  return false;
}

bool isCrowded(MessageKind kind, std::string_view payload, std::size_t storedBytes) {
  return kind != MessageKind::kUnknown && isCrowded(payload, storedBytes);
}

}  // namespace morva
