#include "platform/shared_object.h"

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

std::string SharedObject::fileOf(const void* address) {
  Dl_info info{};
  link_map* map = nullptr;
  const bool isKnown =
      ::dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) != 0;
  if (!isKnown || map == nullptr) return {};
  const std::string name = map->l_name;
  // The program itself has no name here, and the one it was called by may be relative.
  if (name.empty()) return FilePath("/proc/self/exe").realPath();
  return name.starts_with('/') ? FilePath(name).realPath() : std::string();
}

void* SharedObject::loadSymbol(const std::string& path, const char* symbol, std::string* reason) {
  void* const object = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (object == nullptr) {
    *reason = lastError();
    return nullptr;
  }
  void* const found = ::dlsym(object, symbol);
  if (found != nullptr) return found;
  *reason = lastError();
  ::dlclose(object);
  return nullptr;
}

}  // namespace osmik
