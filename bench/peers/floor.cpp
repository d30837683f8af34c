// bench_floor [--decompress] BAG: the least that verifying a bag can cost. 256 KiB reads into one
// buffer, the framing walked in memory, libdeflate's CRC-32 over each payload; with --decompress
// each payload is also restored into one buffer.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <libdeflate.h>
#include <vector>

#include "bench/peers/bag_walk.h"

namespace {

class Floor {
 public:
  Floor(const char* path, bool decompresses)
      : walk_(path),
        codec_(walk_.compression()),
        decompresses_(decompresses && walk_.compression() != 0) {}

  /// @return Chunks up to the index, which is the last.
  unsigned long run() {
    for (unsigned long chunks = 1;; ++chunks) {
      const peers::Frame frame = walk_.next();
      verify(frame);
      if (frame.type == peers::kIndexChunk) return chunks;
    }
  }

 private:
  void verify(const peers::Frame& frame) {
    peers::FrontToEnd& file = walk_.file();
    std::uint32_t crc = 0;
    const auto sum = [&crc](const unsigned char* bytes, std::size_t size) {
      crc = libdeflate_crc32(crc, bytes, size);
    };
    const bool restores = decompresses_ && frame.rawSize != frame.storedSize;
    if (restores) {
      file.into(peers::grown(stored_, frame.storedSize).data(), frame.storedSize, sum);
    } else {
      file.each(frame.storedSize, sum);
    }
    if (peers::load<std::uint32_t>(file.take(4)) != crc) peers::fail("a checksum is wrong");
    if (restores) {
      codec_.decompress(stored_.data(), frame.storedSize, peers::grown(raw_, frame.rawSize).data(),
                        frame.rawSize);
    }
  }

  peers::BagWalk walk_;
  peers::Codec codec_;
  bool decompresses_;
  std::vector<unsigned char> stored_;
  std::vector<unsigned char> raw_;
};

}  // namespace

int main(int count, char** arguments) {
  const bool decompresses = count == 3 && std::strcmp(arguments[1], "--decompress") == 0;
  if (count != (decompresses ? 3 : 2)) peers::fail("usage: bench_floor [--decompress] BAG");
  std::printf("%lu chunks\n", Floor(arguments[count - 1], decompresses).run());
  return 0;
}
