#ifndef MORVA_BENCH_PEERS_CODEC_H_
#define MORVA_BENCH_PEERS_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <lz4.h>
#include <zstd.h>

#include "bench/peers/file_parts.h"

namespace peers {

inline constexpr unsigned kLz4 = 2;  ///< byte 5 of a bag's header
inline constexpr unsigned kZstd = 3;

/// The codecs themselves, with one context for all calls.
class Codec {
 public:
  explicit Codec(unsigned kind) : kind_(kind) {}
  Codec(const Codec&) = delete;
  Codec& operator=(const Codec&) = delete;
  ~Codec() {
    ZSTD_freeDCtx(decoder_);
    ZSTD_freeCCtx(encoder_);
  }

  void decompress(const unsigned char* stored, std::size_t storedSize, unsigned char* raw,
                  std::size_t rawSize) {
    const std::size_t size =
        kind_ == kLz4
            ? static_cast<std::size_t>(LZ4_decompress_safe(
                  text(stored), text(raw), static_cast<int>(storedSize), static_cast<int>(rawSize)))
            : ZSTD_decompressDCtx(decoder_, raw, rawSize, stored, storedSize);
    if (size != rawSize) fail("a payload does not decompress");
  }

  /// @param capacity  Of `stored`. @return What it takes; 0 where that is not less than `rawSize`.
  std::size_t compress(const unsigned char* raw, std::size_t rawSize, unsigned char* stored,
                       std::size_t capacity) {
    const std::size_t size =
        kind_ == kLz4
            ? static_cast<std::size_t>(LZ4_compress_default(
                  text(raw), text(stored), static_cast<int>(rawSize), static_cast<int>(capacity)))
            : ZSTD_compressCCtx(encoder_, stored, capacity, raw, rawSize, kZstdLevel);
    return ZSTD_isError(size) != 0U || size >= rawSize ? 0 : size;
  }

 private:
  static constexpr int kZstdLevel = 1;

  static const char* text(const unsigned char* bytes) {
    return reinterpret_cast<const char*>(bytes);
  }
  static char* text(unsigned char* bytes) { return reinterpret_cast<char*>(bytes); }

  unsigned kind_;
  ZSTD_DCtx* decoder_ = ZSTD_createDCtx();
  ZSTD_CCtx* encoder_ = ZSTD_createCCtx();
};

}  // namespace peers

#endif  // MORVA_BENCH_PEERS_CODEC_H_
