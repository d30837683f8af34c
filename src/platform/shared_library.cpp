#include "platform/shared_library.h"

#include <dlfcn.h>
#include <link.h>

#include "platform/file_path.h"

namespace osmik {
namespace {

std::string lastError() {
  const char* const text = ::dlerror();
  return text == nullptr ? "unknown reason" : text;
}

}  // namespace

void* SharedLibrary::loadSymbol(const std::string& path, const char* symbol, std::string* error) {
  if (!path.starts_with('/')) {
    *error = path + ": not an absolute path";
    return nullptr;
  }
  void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    *error = lastError();
    return nullptr;
  }
  void* const found = ::dlsym(library, symbol);
  if (found != nullptr) return found;
  *error = lastError();
  ::dlclose(library);
  return nullptr;
}

std::string SharedLibrary::fileOf(const void* address) {
  Dl_info info{};
  link_map* map = nullptr;
  const bool isKnown =
      ::dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) != 0;
  if (!isKnown || map == nullptr) return {};
  const std::string name = map->l_name;
  // The program itself has no name here, and the one that it was called by may be relative.
  const std::string path = FilePath(name.empty() ? "/proc/self/exe" : name).realPath();
  const bool isAbsolute = name.empty() || name.starts_with('/');
  return isAbsolute && path.starts_with('/') ? path : std::string();
}

}  // namespace osmik
