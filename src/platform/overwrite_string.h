#ifndef MORVA_PLATFORM_OVERWRITE_STRING_H_
#define MORVA_PLATFORM_OVERWRITE_STRING_H_

#include <cstddef>
#include <string>

namespace morva {

/// Fills the first bytes of `memory`, which holds `size`. @return How many it has filled.
using FillBytes = std::size_t (*)(void* context, char* memory, std::size_t size);

/// overwriteString() for a plain function.
void overwriteStringWith(std::string* text, std::size_t size, FillBytes fill, void* context);

/// Replaces `text` by what `fill` writes into `size` bytes of memory, which are not set to zero
/// first as resize() would: for large payloads that costs as much as reading them.
/// @param fill  Called once as fill(char* memory, std::size_t size); gives the number of bytes,
///              counted from the first, that it has written and that `text` keeps. Must not throw.
template <typename Fill>
void overwriteString(std::string* text, std::size_t size, Fill fill) {
  const FillBytes call = [](void* context, char* memory, std::size_t bytes) -> std::size_t {
    return (*static_cast<Fill*>(context))(memory, bytes);
  };
  overwriteStringWith(text, size, call, &fill);
}

}  // namespace morva

#endif  // MORVA_PLATFORM_OVERWRITE_STRING_H_
