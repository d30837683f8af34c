#ifndef MORVA_PLATFORM_GLOB_H_
#define MORVA_PLATFORM_GLOB_H_

#include <string>

namespace osmik {

/// Whether a pattern of the shell describes all of `text`: "*" stands for any characters, "/" and
/// none included, "?" for one, "[abc]", "[a-z]" and "[!a]" for one of a set; "\" takes the next
/// character as it is. Threads: any.
[[nodiscard]] bool matchesGlob(const std::string& pattern, const std::string& text);

}  // namespace osmik

#endif  // MORVA_PLATFORM_GLOB_H_
