#include "export/picture_module.h"

#include <atomic>
#include <dlfcn.h>
#include <link.h>
#include <mutex>

#include "platform/file.h"
#include "platform/file_path.h"

namespace morva {
namespace {

constexpr char kModuleName[] = "kbag_pictures.so";
// From the folder of a program, or of a library, to that of the module.
constexpr const char* kPlaces[] = {"", "kbag/", "../" KBAG_MODULE_DIR "/", "../lib/kbag/"};

std::mutex& loadMutex() {
  static std::mutex mutex;
  return mutex;
}

std::atomic<PictureDecoder*>& replacement() {
  static std::atomic<PictureDecoder*> decoder = nullptr;
  return decoder;
}

/// The file of the program or library that holds this code; empty where its path is not known for
/// sure.
std::string ownFile() {
  Dl_info info{};
  link_map* map = nullptr;
  const void* const self = reinterpret_cast<const void*>(&PictureModule::places);
  const bool isKnown = ::dladdr1(self, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) != 0;
  if (!isKnown || map == nullptr) return {};
  const std::string name = map->l_name;
  // The program itself has no name here, and the one it was called by may be relative.
  if (name.empty()) return osmik::FilePath("/proc/self/exe").realPath();
  return name.starts_with('/') ? osmik::FilePath(name).realPath() : std::string();
}

std::string lastError() {
  const char* const text = ::dlerror();
  return text == nullptr ? "unknown reason" : text;
}

}  // namespace

std::vector<std::string> PictureModule::places() {
  const std::string own = ownFile();
  std::vector<std::string> paths;
  if (!own.starts_with('/')) return paths;
  const std::string folder = osmik::FilePath(own).dirName();
  for (const char* const place : kPlaces) paths.push_back(folder + "/" + place + kModuleName);
  return paths;
}

PictureDecoder* PictureModule::load(const std::string& path, std::string* reason) {
  void* const module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    *reason = lastError();
    return nullptr;
  }
  const auto function = reinterpret_cast<PictureFunction>(::dlsym(module, kPictureFunction));
  if (function != nullptr) return function();  // never unloaded: its library keeps threads
  *reason = lastError();
  ::dlclose(module);
  return nullptr;
}

PictureDecoder* PictureModule::decoder(std::string* reason) {
  if (PictureDecoder* const decoder = replacement(); decoder != nullptr) return decoder;
  static PictureDecoder* loaded = nullptr;
  const std::lock_guard lock(loadMutex());
  if (loaded != nullptr) return loaded;
  *reason = std::string(kModuleName) + " is not installed";
  for (const std::string& path : places()) {
    if (!osmik::File::exists(path)) continue;
    loaded = load(path, reason);
    break;
  }
  return loaded;
}

void PictureModule::replace(PictureDecoder* decoder) { replacement() = decoder; }

}  // namespace morva
