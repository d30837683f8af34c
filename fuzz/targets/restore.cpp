// Compressed bytes with a raw size that may be a lie.
#include <memory>
#include <string>

#include "platform/byte_order.h"
#include "platform/compress.h"
#include "target.h"

namespace morva::fuzz {

void runRestore(std::string_view input) {
  if (input.size() < 5) return;
  std::unique_ptr<basalt::Compressor> codec;
  const bool isLz4 = input[0] != 3;
  if (isLz4) {
    codec = std::make_unique<basalt::Lz4Compress>();
  } else {
    codec = std::make_unique<basalt::ZstdCompress>();
  }
  const auto rawSize = loadLe<std::uint32_t>(&input[1]);
  const std::string packed(input.substr(5));
  std::string raw;
  const std::int64_t length = codec->decompress(packed.data(), packed.size(), rawSize, &raw);
  if (length < 1) return;
  expect(static_cast<std::size_t>(length) == raw.size(), "a restored payload has another length");
  expect(raw.size() <= codec->bound(rawSize), "a restored payload is larger than it can be");
  expect(isLz4 || raw.size() == rawSize, "a payload is restored to another size");

  std::string again(codec->bound(raw.size()), '\0');
  const std::int64_t size = codec->compress(raw.data(), raw.size(), again.data(), again.size());
  if (size < 1) return;
  std::string same;
  expect(codec->decompress(again.data(), static_cast<std::size_t>(size), raw.size(), &same) ==
                 length &&
             same == raw,
         "a payload does not survive being compressed");
}

}  // namespace morva::fuzz
