#ifndef MORVA_PLATFORM_REPLACE_FILE_H_
#define MORVA_PLATFORM_REPLACE_FILE_H_

#include <string>

namespace osmik {

/// Gives the file `path` the content `content`, all or nothing: whenever the program or the machine
/// stops, the file holds what it held before or the new content whole, and the new content is on
/// the storage device once this returns.
///
/// Goes through the file ".<name>.tmp" beside it, which an earlier attempt may have left and which
/// is replaced. Threads: one at a time for a path.
/// @return False with errno set; the file is as it was.
[[nodiscard]] bool replaceFile(const std::string& path, const std::string& content);

/// Gives a finished file its final name, in the same directory, once its content is on the storage
/// device.
/// @param replace  Whether it may take the place of what has that name already.
/// @return False with errno set (EEXIST: something is there); the file keeps its first name.
[[nodiscard]] bool publishFile(const std::string& temporary, const std::string& path, bool replace);

/// Makes the names in a directory, new ones and renamed ones, survive a power failure. True also
/// where the file system has no such operation.
/// @return False with errno set.
[[nodiscard]] bool syncDirectory(const std::string& path);

}  // namespace osmik

#endif  // MORVA_PLATFORM_REPLACE_FILE_H_
