// bench_floor [--decompress] BAG: the least that verifying a bag can cost. 256 KiB reads into one
// buffer, the framing walked in memory, libdeflate's CRC-32 over each payload; with --decompress
// each payload is also restored into one buffer.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <libdeflate.h>
#include <vector>

#include "bench/peers/codec.h"
#include "bench/peers/file_parts.h"

namespace {

constexpr std::size_t kHeaderBytes = 4096;
constexpr std::size_t kCompressionOffset = 5;
constexpr std::size_t kFrameBytes = 8;  // chunk size, type, header size
constexpr std::size_t kRawSizeOffset = 8;
constexpr unsigned kIndexChunk = 255;

std::vector<unsigned char>& grown(std::vector<unsigned char>& buffer, std::size_t size) {
  if (buffer.size() < size) buffer.resize(size);
  return buffer;
}

class Floor {
 public:
  Floor(const char* path, bool decompresses) : file_(path), decompresses_(decompresses) {
    compression_ = file_.take(kHeaderBytes)[kCompressionOffset];
  }

  void run() {
    peers::Codec codec(compression_);
    while (true) {
      const unsigned char* const frame = file_.take(kFrameBytes);
      const unsigned type = peers::load<std::uint16_t>(frame + 4);
      const unsigned headerSize = peers::load<std::uint16_t>(frame + 6);
      const unsigned char* const header = file_.take(headerSize + 4);
      const auto rawSize = peers::load<std::uint32_t>(header + kRawSizeOffset);
      const auto size = peers::load<std::uint32_t>(header + headerSize);
      const bool restores = decompresses_ && compression_ != 0 && rawSize != size;

      std::uint32_t crc = 0;
      const auto sum = [&crc](const unsigned char* bytes, std::size_t count) {
        crc = libdeflate_crc32(crc, bytes, count);
      };
      if (restores) {
        file_.into(grown(stored_, size).data(), size, sum);
      } else {
        file_.each(size, sum);
      }
      if (peers::load<std::uint32_t>(file_.take(4)) != crc) peers::fail("a checksum is wrong");
      if (restores) {
        codec.decompress(stored_.data(), size, grown(raw_, rawSize).data(), rawSize);
      }
      ++chunks_;
      if (type == kIndexChunk) return;
    }
  }

  [[nodiscard]] unsigned long chunks() const { return chunks_; }

 private:
  peers::FrontToEnd file_;
  bool decompresses_;
  unsigned compression_ = 0;
  std::vector<unsigned char> stored_;
  std::vector<unsigned char> raw_;
  unsigned long chunks_ = 0;
};

}  // namespace

int main(int count, char** arguments) {
  const bool decompresses = count == 3 && std::strcmp(arguments[1], "--decompress") == 0;
  if (count != (decompresses ? 3 : 2)) peers::fail("usage: bench_floor [--decompress] BAG");
  Floor floor(arguments[count - 1], decompresses);
  floor.run();
  std::printf("%lu chunks\n", floor.chunks());
  return 0;
}
