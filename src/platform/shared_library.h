#ifndef MORVA_PLATFORM_SHARED_LIBRARY_H_
#define MORVA_PLATFORM_SHARED_LIBRARY_H_

#include <string>

namespace osmik {

/// Shared libraries that are loaded at run time. Threads: any.
class SharedLibrary {
 public:
  /// Loads a library and finds a symbol in it. The library stays until the process ends, since what
  /// it made may live as long; one without the symbol is unloaded again.
  /// @param path   Absolute. A name without "/" would be sought where the environment points.
  /// @param error  [out, not null] The system's reason for a failure.
  /// @return Null on failure.
  [[nodiscard]] static void* loadSymbol(const std::string& path, const char* symbol,
                                        std::string* error);

  /// The absolute path, links resolved, of the program or library that holds the code or data at
  /// `address`; empty where it is not known for sure.
  [[nodiscard]] static std::string fileOf(const void* address);
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_SHARED_LIBRARY_H_
