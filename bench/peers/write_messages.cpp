// bench_write_messages none|lz4|zstd FROM TO: writes the messages of a bag, from memory, framed as
// a bag frames them: the codec, libdeflate's CRC-32, and a 256 KiB buffer. Tells the CPU time of
// the writing. What it leaves out of a bag are its header, its topics and its index.

#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <libdeflate.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "bench/peers/bag_walk.h"
#include "bench/peers/cpu_clock.h"

namespace {

using Bytes = std::vector<unsigned char>;

/// A file behind a buffer; what does not fit into that goes straight to the file.
class Target {
 public:
  explicit Target(const char* path)
      : file_(::open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644)), buffer_(peers::kReadBytes) {
    if (file_ < 0) peers::fail("cannot create the file");
  }

  void write(const unsigned char* bytes, std::size_t size) {
    if (size > buffer_.size() - used_) flush();
    if (size > buffer_.size()) return toFile(bytes, size);
    std::memcpy(&buffer_[used_], bytes, size);
    used_ += size;
  }

  void close() {
    flush();
    if (::close(file_) != 0) peers::fail("cannot close");
  }

 private:
  void flush() {
    toFile(buffer_.data(), used_);
    used_ = 0;
  }
  void toFile(const unsigned char* bytes, std::size_t size) const {
    if (::write(file_, bytes, size) != static_cast<ssize_t>(size)) peers::fail("cannot write");
  }

  int file_;
  Bytes buffer_;
  std::size_t used_ = 0;
};

unsigned codecOf(const std::string& name) {
  if (name == "lz4") return peers::kLz4;
  return name == "zstd" ? peers::kZstd : 0;
}

std::vector<Bytes> messagesOf(const char* path) {
  peers::Payloads payloads(path);
  std::vector<Bytes> messages;
  while (payloads.next()) messages.emplace_back(payloads.data(), payloads.data() + payloads.size());
  return messages;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) peers::fail("usage: bench_write_messages none|lz4|zstd FROM TO");
  const std::vector<Bytes> messages = messagesOf(arguments[2]);
  const unsigned kind = codecOf(arguments[1]);

  const peers::CpuClock clock;
  peers::Codec codec(kind);
  Target target(arguments[3]);
  Bytes stored;
  unsigned char frame[peers::kMessageDataOffset] = {};
  for (const Bytes& message : messages) {
    const unsigned char* data = message.data();
    std::size_t size = message.size();
    if (kind != 0) {
      peers::grown(stored, ZSTD_compressBound(message.size()));
      const std::size_t smaller =
          codec.compress(message.data(), message.size(), stored.data(), stored.size());
      if (smaller != 0) {
        data = stored.data();
        size = smaller;
      }
    }
    const std::uint32_t crc = libdeflate_crc32(0, data, size);
    std::memcpy(frame + sizeof frame - 4, &size, 4);
    target.write(frame, sizeof frame);
    target.write(data, size);
    target.write(reinterpret_cast<const unsigned char*>(&crc), sizeof crc);
  }
  target.close();
  clock.tell();
  return 0;
}
