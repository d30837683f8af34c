#include "platform/compress.h"

#include <algorithm>
#include <limits>
#include <lz4.h>
#include <memory>
#include <zstd.h>

#include "platform/overwrite_string.h"

namespace basalt {
namespace {

// One LZ4 length byte stands for at most 255 output bytes.
constexpr std::size_t kLz4MaxRatio = 255;
// One Zstandard block header and its smallest body take 4 bytes and restore at most 128 KiB.
constexpr std::size_t kZstdBlockStoredBytes = 4;
constexpr std::size_t kZstdBlockRawBytes = 128UL * 1024;
constexpr int kZstdLevel = 1;
// Beyond the usual, output is taken in steps, so that a lying size costs no more than the data
// really restores.
constexpr std::size_t kFirstStepBytes = 1024UL * 1024;
constexpr std::size_t kUsualRatio = 8;

struct ZstdContextDeleter {
  void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
  void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
};

ZSTD_CCtx* threadCompressContext() {
  thread_local const std::unique_ptr<ZSTD_CCtx, ZstdContextDeleter> context(ZSTD_createCCtx());
  return context.get();
}

ZSTD_DCtx* threadDecompressContext() {
  thread_local const std::unique_ptr<ZSTD_DCtx, ZstdContextDeleter> context(ZSTD_createDCtx());
  return context.get();
}

/// @return Whether a whole frame of `rawSize` bytes was decoded.
bool decompressInSteps(ZSTD_DCtx* context, ZSTD_inBuffer* input, std::size_t rawSize,
                       std::string* out) {
  std::size_t done = 0;
  while (done < rawSize) {
    if (out->size() < rawSize) out->resize(std::min(rawSize, std::max(kFirstStepBytes, 2 * done)));
    ZSTD_outBuffer output{out->data(), std::min(out->size(), rawSize), done};
    const std::size_t left = ZSTD_decompressStream(context, &output, input);
    if (ZSTD_isError(left) != 0U) return false;
    const bool stuck = output.pos == done && input->pos == input->size;
    done = output.pos;
    if (left == 0) break;
    if (stuck) return false;
  }
  if (done != rawSize) return false;
  out->resize(rawSize);
  return true;
}

/// Whether so few bytes are not believed to hold so many: a few kilobytes could otherwise fill the
/// memory. The writer leaves such data as they are.
bool isBomb(std::size_t storedSize, std::size_t rawSize) {
  constexpr std::size_t kUnsuspectedBytes = 64UL * 1024 * 1024;
  constexpr std::size_t kMaxRatio = 256;
  return rawSize > kUnsuspectedBytes && rawSize / kMaxRatio > storedSize;
}

}  // namespace

std::size_t Lz4Compress::bound(std::size_t rawSize) const {
  if (rawSize > LZ4_MAX_INPUT_SIZE) return 0;
  return static_cast<std::size_t>(LZ4_compressBound(static_cast<int>(rawSize)));
}

std::int64_t Lz4Compress::compress(const void* data, std::size_t size, void* out,
                                   std::size_t capacity) const {
  if (size == 0 || size > LZ4_MAX_INPUT_SIZE) return 0;
  // The result must be smaller than the input, so a larger buffer is of no use.
  const int limit = static_cast<int>(std::min(capacity, size - 1));
  return LZ4_compress_default(static_cast<const char*>(data), static_cast<char*>(out),
                              static_cast<int>(size), limit);
}

std::int64_t Lz4Compress::decompress(const void* data, std::size_t size, std::size_t rawSize,
                                     std::string* out) const {
  const std::size_t capacity = bound(rawSize);
  if (size == 0 || size > LZ4_MAX_INPUT_SIZE || capacity == 0) return -1;
  if (rawSize / kLz4MaxRatio > size) return -1;
  int length = 0;
  morva::overwriteString(out, capacity, [&](char* memory, std::size_t bytes) {
    length = LZ4_decompress_safe(static_cast<const char*>(data), memory, static_cast<int>(size),
                                 static_cast<int>(bytes));
    return static_cast<std::size_t>(std::max(length, 0));
  });
  return length;
}

std::size_t ZstdCompress::bound(std::size_t rawSize) const { return ZSTD_compressBound(rawSize); }

std::int64_t ZstdCompress::compress(const void* data, std::size_t size, void* out,
                                    std::size_t capacity) const {
  ZSTD_CCtx* const context = threadCompressContext();
  if (size == 0 || context == nullptr) return 0;
  const std::size_t length = ZSTD_compressCCtx(context, out, capacity, data, size, kZstdLevel);
  if (ZSTD_isError(length) != 0U || length >= size || isBomb(length, size)) return 0;
  return static_cast<std::int64_t>(length);
}

std::int64_t ZstdCompress::decompress(const void* data, std::size_t size, std::size_t rawSize,
                                      std::string* out) const {
  ZSTD_DCtx* const context = threadDecompressContext();
  if (context == nullptr || rawSize == 0) return -1;
  if (rawSize / kZstdBlockRawBytes > size / kZstdBlockStoredBytes || isBomb(size, rawSize))
    return -1;
  if (ZSTD_getFrameContentSize(data, size) != rawSize) return -1;
  if (ZSTD_isError(ZSTD_DCtx_reset(context, ZSTD_reset_session_only)) != 0U) return -1;

  ZSTD_inBuffer input{data, size, 0};
  bool complete = false;
  if (rawSize <= kFirstStepBytes || rawSize / kUsualRatio <= size) {
    // Room for all of it lets the library decode straight into the output, in one go.
    morva::overwriteString(out, rawSize, [&](char* memory, std::size_t bytes) {
      ZSTD_outBuffer output{memory, bytes, 0};
      const std::size_t left = ZSTD_decompressStream(context, &output, &input);
      complete = left == 0 && output.pos == rawSize;
      return output.pos;
    });
  } else {
    complete = decompressInSteps(context, &input, rawSize, out);
  }
  return complete && input.pos == size ? static_cast<std::int64_t>(rawSize) : -1;
}

}  // namespace basalt
