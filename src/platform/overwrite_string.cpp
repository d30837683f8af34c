// The one file that is compiled as C++23, for basic_string::resize_and_overwrite.
#include "platform/overwrite_string.h"

#include "platform/memory.h"

namespace morva {

void overwriteStringWith(std::string* text, std::size_t size, FillBytes fill, void* context) {
  text->clear();  // what is there need not be copied when it grows
  const bool isNew = size > text->capacity();
#ifdef __cpp_lib_string_resize_and_overwrite
  // The library may offer more bytes than it was asked for (GCC 12 does).
  text->resize_and_overwrite(size, [=](char* memory, std::size_t) {
    if (isNew) osmik::useLargePages(memory, size);
    return fill(context, memory, size);
  });
#else
  text->resize(size);
  text->resize(fill(context, text->data(), size));
#endif
}

}  // namespace morva
