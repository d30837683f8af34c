#include "export/picture_module.h"

#include <atomic>
#include <mutex>

#include "platform/file.h"
#include "platform/file_path.h"
#include "platform/shared_object.h"

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

}  // namespace

std::vector<std::string> PictureModule::places() {
  const void* const self = reinterpret_cast<const void*>(&PictureModule::places);
  const std::string own = osmik::SharedObject::fileOf(self);
  std::vector<std::string> paths;
  if (!own.starts_with('/')) return paths;
  const std::string folder = osmik::FilePath(own).dirName();
  for (const char* const place : kPlaces) paths.push_back(folder + "/" + place + kModuleName);
  return paths;
}

PictureDecoder* PictureModule::load(const std::string& path, std::string* reason) {
  // Never unloaded: the library behind it keeps threads.
  void* const found = osmik::SharedObject::loadSymbol(path, kPictureFunction, reason);
  const auto function = reinterpret_cast<PictureFunction>(found);
  return function == nullptr ? nullptr : function();
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
