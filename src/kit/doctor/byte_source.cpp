#include "kit/doctor/byte_source.h"

#include <algorithm>

namespace morva::doctor {

bool ByteSource::open(const std::string& path) {
  if (!file_.open(path, osmik::OpenMode::kRead)) return false;
  const std::int64_t size = file_.size();
  if (size < 0) return false;
  size_ = static_cast<std::uint64_t>(size);
  return true;
}

bool ByteSource::readWhole(std::uint64_t offset, std::size_t size, char* out) {
  const auto position = static_cast<std::int64_t>(offset);
  return file_.seek(position) == position &&
         file_.read(out, size) == static_cast<std::int64_t>(size);
}

void ByteSource::read(std::uint64_t offset, std::size_t size, char* out) {
  constexpr std::size_t kSectorBytes = 4096;  // what a disk loses at a time
  const std::uint64_t left = offset < size_ ? size_ - offset : 0;
  const auto held = static_cast<std::size_t>(std::min<std::uint64_t>(left, size));
  std::fill(out + held, out + size, '\0');
  if (held == 0 || readWhole(offset, held, out)) return;
  std::size_t step = 0;
  for (std::size_t done = 0; done < held; done += step) {
    const std::uint64_t at = offset + done;
    step = std::min<std::size_t>(held - done, kSectorBytes - at % kSectorBytes);
    if (readWhole(at, step, out + done)) continue;
    std::fill_n(out + done, step, '\0');
    unreadable_.push_back({at, at + step});
  }
}

std::string ByteSource::read(std::uint64_t offset, std::size_t size) {
  std::string bytes(size, '\0');
  read(offset, size, bytes.data());
  return bytes;
}

std::vector<ByteRange> ByteSource::unreadable() const {
  std::vector<ByteRange> ranges = unreadable_;
  std::ranges::sort(ranges, {}, &ByteRange::begin);
  std::vector<ByteRange> joined;
  for (const ByteRange& range : ranges) {
    if (!joined.empty() && range.begin <= joined.back().end) {
      joined.back().end = std::max(joined.back().end, range.end);
    } else {
      joined.push_back(range);
    }
  }
  return joined;
}

}  // namespace morva::doctor
