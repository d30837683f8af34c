#ifndef MORVA_PLATFORM_NEW_FILE_H_
#define MORVA_PLATFORM_NEW_FILE_H_

#include <cstddef>
#include <string>

#include "platform/file.h"

namespace osmik {

/// Creates a file for writing through a buffer; it replaces what has its name and follows no link.
/// @return False with errno set: what has its name cannot be removed, or no file be created.
[[nodiscard]] bool openNewFile(const std::string& path, std::size_t bufferBytes, File* file);

}  // namespace osmik

#endif  // MORVA_PLATFORM_NEW_FILE_H_
