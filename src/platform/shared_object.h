#ifndef MORVA_PLATFORM_SHARED_OBJECT_H_
#define MORVA_PLATFORM_SHARED_OBJECT_H_

#include <string>

namespace osmik {

/// Code that is loaded while the program runs. Threads: any.
class SharedObject {
 public:
  /// Path of the program or library file that holds `address`, with links resolved; empty where it
  /// is not known for sure.
  [[nodiscard]] static std::string fileOf(const void* address);

  /// Loads the file at `path` and looks a symbol up in it. What was loaded stays for the life of
  /// the process.
  /// @param reason  [out, not null] Why it failed.
  /// @return Null on failure; the file is unloaded again then.
  [[nodiscard]] static void* loadSymbol(const std::string& path, const char* symbol,
                                        std::string* reason);
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_SHARED_OBJECT_H_
