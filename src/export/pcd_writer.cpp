#include "export/pcd_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <string_view>
#include <system_error>

#include "platform/file.h"
#include "platform/new_file.h"

namespace morva {
namespace {

constexpr std::size_t kBlockBytes = 0x100000;

/// The unit of what is written: rows are made in it, one after the other, and the file takes it as
/// it is, without a buffer of its own to copy it to.
class Block {
 public:
  /// @param bytes  About as many will be appended in all.
  explicit Block(std::size_t bytes)
      : size_(std::min(kBlockBytes, bytes)),
        bytes_(std::make_unique_for_overwrite<char[]>(size_)),
        at_(bytes_.get()) {}

  /// Where the next row goes: room for kPcdRowBytes, unless the block is full.
  [[nodiscard]] char* at() const { return at_; }
  void advanceTo(char* at) { at_ = at; }
  [[nodiscard]] bool isFull() const { return room() < kPcdRowBytes; }

  /// Writes what was made so far. @return False, with errno set, when not everything was taken.
  [[nodiscard]] bool writeTo(osmik::File* file) {
    const auto made = static_cast<std::size_t>(at_ - bytes_.get());
    at_ = bytes_.get();
    errno = 0;
    return file->write(bytes_.get(), made) == static_cast<std::int64_t>(made);
  }

 private:
  [[nodiscard]] std::size_t room() const {
    return size_ - static_cast<std::size_t>(at_ - bytes_.get());
  }

  std::size_t size_;
  std::unique_ptr<char[]> bytes_;
  char* at_;
};

/// @return False, with errno set, when the cloud is not written whole.
bool writeCloud(osmik::File* file, const PointCloud& cloud) {
  const std::string header = makePcdHeader(cloud.points.size());
  Block block(header.size() + (cloud.points.size() + 1) * kPcdRowBytes);
  std::memcpy(block.at(), header.data(), header.size());
  block.advanceTo(block.at() + header.size());
  for (const PointIRT& point : cloud.points) {
    if (block.isFull() && !block.writeTo(file)) return false;
    block.advanceTo(putPcdRow(point, block.at()));
  }
  if (!block.writeTo(file)) return false;
  errno = 0;
  return file->close();
}

char* putText(std::string_view text, char* at) {
  std::memcpy(at, text.data(), text.size());
  return at + text.size();
}

}  // namespace

char* putPcdRow(const PointIRT& point, char* at) {
  for (const float value : {point.x, point.y, point.z}) {
    at = osmik::putFixed6(value, at);
    *at++ = ' ';
  }
  at = putText("0.000000 0.000000 0.000000 ", at);
  at = osmik::putFixed6(point.intensity, at);
  *at++ = ' ';
  at = osmik::putFixed6(point.timestamp, at);
  *at++ = ' ';
  at = osmik::putUnsigned(point.ring, at);
  *at++ = '\n';
  return at;
}

bool savePcd(const Log& log, const std::string& path, const PointCloud& cloud) {
  std::string reason;
  try {
    osmik::File file;
    if (!osmik::openNewFile(path, 0, &file)) {
      log.warning("create file(%s) error!", path);
      return false;
    }
    if (writeCloud(&file, cloud)) return true;
    reason = std::generic_category().message(errno);
  } catch (const std::exception& exception) {
    reason = exception.what();
  }
  log.error("save pcd error: %s(%s)!", path, reason);
  osmik::File::remove(path);
  return false;
}

}  // namespace morva
