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

}  // namespace osmik

#endif  // MORVA_PLATFORM_REPLACE_FILE_H_
