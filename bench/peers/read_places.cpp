// bench_read_places in-order|shuffled BAG: reads every message of a bag where it lies, topic by
// topic or in any order: one pread each, libdeflate's CRC-32, and the codec into one buffer. Tells
// the CPU time of the reading.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <libdeflate.h>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include "bench/peers/bag_walk.h"
#include "bench/peers/cpu_clock.h"

namespace {

std::vector<peers::Frame> messagesOf(peers::BagWalk* walk) {
  std::vector<peers::Frame> messages;
  while (true) {
    const peers::Frame frame = walk->next();
    if (frame.type == peers::kIndexChunk) break;
    if (frame.type == peers::kMessageChunk) messages.push_back(frame);
    walk->file().each(frame.storedSize + 4, [](const unsigned char*, std::size_t) {});
  }
  std::ranges::stable_sort(messages, {}, &peers::Frame::topic);
  return messages;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) peers::fail("usage: bench_read_places in-order|shuffled BAG");
  peers::BagWalk walk(arguments[2]);
  std::vector<peers::Frame> messages = messagesOf(&walk);
  if (std::string(arguments[1]) == "shuffled") std::ranges::shuffle(messages, std::mt19937(1));

  const int file = ::open(arguments[2], O_RDONLY);
  peers::Codec codec(walk.compression());
  std::vector<unsigned char> stored;
  std::vector<unsigned char> raw;
  std::uint64_t bytes = 0;
  const peers::CpuClock clock;
  for (const peers::Frame& message : messages) {
    const std::size_t size = message.storedSize;
    unsigned char* const data = peers::grown(stored, size + 4).data();
    if (::pread(file, data, size + 4, static_cast<off_t>(message.dataOffset)) !=
        static_cast<ssize_t>(size + 4)) {
      peers::fail("cannot read");
    }
    if (libdeflate_crc32(0, data, size) != peers::load<std::uint32_t>(data + size)) {
      peers::fail("a checksum is wrong");
    }
    if (walk.compression() != 0 && message.rawSize != message.storedSize) {
      codec.decompress(data, size, peers::grown(raw, message.rawSize).data(), message.rawSize);
    }
    bytes += message.rawSize;
  }
  clock.tell();
  std::printf("%zu messages, %llu bytes\n", messages.size(),
              static_cast<unsigned long long>(bytes));
  return 0;
}
