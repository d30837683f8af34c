#ifndef MORVA_PLATFORM_COMPRESS_H_
#define MORVA_PLATFORM_COMPRESS_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace basalt {

/// A block codec: one payload in, one payload out. Objects hold no state of their own, so one
/// object serves any number of threads at the same time.
class Compressor {
 public:
  virtual ~Compressor() = default;

  /// Bytes that a buffer needs to hold either form of `rawSize` raw bytes; 0 when the codec cannot
  /// take that many.
  [[nodiscard]] virtual std::size_t bound(std::size_t rawSize) const = 0;

  /// Compresses `size` bytes into `out`, which holds `capacity` bytes.
  /// @return Compressed length; 0 when the codec failed or its output would not be smaller than its
  ///         input, so that the caller stores the payload as it stands.
  [[nodiscard]] virtual std::int64_t compress(const void* data, std::size_t size, void* out,
                                              std::size_t capacity) const = 0;

  /// Restores a payload. `rawSize` is what the file claims the result to hold; it is checked
  /// against what the codec can make of `size` stored bytes before any memory is taken for it.
  /// @param out  [out, not null] The restored bytes; unspecified on failure.
  /// @return Restored length, or a value below 1: impossible raw size, corrupt data.
  [[nodiscard]] virtual std::int64_t decompress(const void* data, std::size_t size,
                                                std::size_t rawSize, std::string* out) const = 0;
};

/// LZ4, raw block format.
class Lz4Compress final : public Compressor {
 public:
  [[nodiscard]] std::size_t bound(std::size_t rawSize) const override;
  [[nodiscard]] std::int64_t compress(const void* data, std::size_t size, void* out,
                                      std::size_t capacity) const override;
  [[nodiscard]] std::int64_t decompress(const void* data, std::size_t size, std::size_t rawSize,
                                        std::string* out) const override;
};

/// Zstandard, one frame of level 1 that records its content size.
class ZstdCompress final : public Compressor {
 public:
  [[nodiscard]] std::size_t bound(std::size_t rawSize) const override;
  [[nodiscard]] std::int64_t compress(const void* data, std::size_t size, void* out,
                                      std::size_t capacity) const override;
  [[nodiscard]] std::int64_t decompress(const void* data, std::size_t size, std::size_t rawSize,
                                        std::string* out) const override;
};

}  // namespace basalt

#endif  // MORVA_PLATFORM_COMPRESS_H_
