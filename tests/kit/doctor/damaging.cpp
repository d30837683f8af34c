#include "kit/doctor/damaging.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace morva::test {
namespace {

constexpr std::size_t kNowhere = std::string::npos;
constexpr std::size_t kFileHeaderBytes = 4096;
constexpr std::size_t kChunkHeaderBytes = 48;  // with the sizes before and behind it

}  // namespace

Damaging::Damaging(const SampleRecording& sample, std::uint32_t seed)
    : sample_(sample), random_(seed), bytes_(sample.bytes), origin_(sample.bytes.size()) {
  std::iota(origin_.begin(), origin_.end(), std::size_t{0});
}

void Damaging::damage() {
  using Kind = void (Damaging::*)();
  constexpr std::array<Kind, 8> kKinds = {&Damaging::flipBits,
                                          &Damaging::zero,
                                          &Damaging::repeatOver,
                                          &Damaging::cutOut,
                                          &Damaging::insert,
                                          &Damaging::insertCopy,
                                          &Damaging::overwriteChunkHeader,
                                          &Damaging::overwriteFileHeader};
  (this->*kKinds[anyBelow(kKinds.size())])();
}

std::size_t Damaging::anyBelow(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }

/// Mostly short ones, some that take several chunks, some the size of what disks lose.
std::size_t Damaging::anyLength() {
  switch (anyBelow(4)) {
    case 0:
      return 1 + anyBelow(16);
    case 1:
      return 512 * (1 + anyBelow(16));
    case 2:
      return 1 + anyBelow(20'000);
    default:
      return 1 + anyBelow(1000);
  }
}

void Damaging::tell(const char* what, std::size_t at, std::size_t length) {
  story_ += std::string(what) + " " + std::to_string(at) + "+" + std::to_string(length) + "; ";
}

void Damaging::overwrite(std::size_t at, const std::string& content) {
  const std::size_t length = std::min(content.size(), bytes_.size() - at);
  bytes_.replace(at, length, content, 0, length);
}

void Damaging::flipBits() {
  const std::size_t at = anyPlace();
  const std::size_t count = 1 + anyBelow(3);
  for (std::size_t i = 0; i < count && at + i < bytes_.size(); ++i) {
    bytes_[at + i] = static_cast<char>(bytes_[at + i] ^ (1 << anyBelow(8)));
  }
  tell("flip", at, count);
}

void Damaging::zero() {
  const std::size_t at = anyPlace();
  const std::size_t length = anyLength();
  overwrite(at, std::string(length, '\0'));
  tell("zero", at, length);
}

void Damaging::repeatOver() {
  const std::size_t from = anyPlace();
  const std::size_t at = anyPlace();
  const std::string copy = bytes_.substr(from, anyLength());
  overwrite(at, copy);
  tell("repeat over", at, copy.size());
}

void Damaging::cutOut() {
  const std::size_t at = anyPlace();
  const std::size_t length = std::min(anyLength(), bytes_.size() - at);
  bytes_.erase(at, length);
  const auto first = origin_.begin() + static_cast<std::ptrdiff_t>(at);
  origin_.erase(first, first + static_cast<std::ptrdiff_t>(length));
  tell("cut", at, length);
}

void Damaging::insert() {
  const std::size_t at = anyPlace();
  std::string content(anyLength(), '\0');
  for (char& byte : content) byte = static_cast<char>(random_());
  bytes_.insert(at, content);
  origin_.insert(origin_.begin() + static_cast<std::ptrdiff_t>(at), content.size(), kNowhere);
  tell("insert", at, content.size());
}

void Damaging::insertCopy() {
  const std::size_t at = anyPlace();
  const std::string content = bytes_.substr(anyPlace(), anyLength());
  bytes_.insert(at, content);
  origin_.insert(origin_.begin() + static_cast<std::ptrdiff_t>(at), content.size(), kNowhere);
  tell("insert copy", at, content.size());
}

void Damaging::overwriteChunkHeader() {
  const SampleMessage& message = sample_.messages[anyBelow(sample_.messages.size())];
  const auto place = std::ranges::find(origin_, message.begin);
  if (place == origin_.end()) return;
  const auto chunk = static_cast<std::size_t>(place - origin_.begin());
  const std::size_t at = std::min(chunk + anyBelow(kChunkHeaderBytes), bytes_.size() - 1);
  std::string content(1 + anyBelow(kChunkHeaderBytes - (at - chunk)), '\0');
  for (char& byte : content) byte = static_cast<char>(random_());
  overwrite(at, content);
  tell("chunk header", at, content.size());
}

void Damaging::overwriteFileHeader() {
  const std::size_t at = anyBelow(std::min(kFileHeaderBytes, bytes_.size()));
  std::string content(1 + anyBelow(40), '\0');
  for (char& byte : content) byte = static_cast<char>(random_());
  overwrite(at, content);
  tell("file header", at, content.size());
}

std::size_t Damaging::whereIntact(std::size_t begin, std::size_t end) const {
  const auto first = std::ranges::find(origin_, begin);
  const auto at = static_cast<std::size_t>(first - origin_.begin());
  if (end - begin > bytes_.size() - at) return kNowhere;
  for (std::size_t i = 0; i < end - begin; ++i) {
    const bool isInPlace = origin_[at + i] == begin + i;
    if (!isInPlace || bytes_[at + i] != sample_.bytes[begin + i]) return kNowhere;
  }
  return at;
}

bool Damaging::isAnywhere(std::size_t begin, std::size_t end) const {
  return bytes_.find(sample_.bytes.substr(begin, end - begin)) != std::string::npos;
}

}  // namespace morva::test
