#include "export/picture_module.h"

#include <atomic>
#include <mutex>

#include "platform/file.h"
#include "platform/file_path.h"
#include "platform/shared_library.h"

namespace morva {
namespace {

constexpr char kModuleName[] = "kbag_pictures.so";
// From the folder of a program, or of a library, to that of the module.
constexpr const char* kPlaces[] = {"", "kbag/", "../" KBAG_MODULE_DIR "/", "../lib/kbag/"};

std::atomic<PictureDecoder*> replacement = nullptr;

}  // namespace

std::vector<std::string> PictureModule::places() {
  const std::string own =
      osmik::SharedLibrary::fileOf(reinterpret_cast<const void*>(&PictureModule::places));
  std::vector<std::string> paths;
  if (own.empty()) return paths;
  const std::string folder = osmik::FilePath(own).dirName();
  for (const char* const place : kPlaces) paths.push_back(folder + "/" + place + kModuleName);
  return paths;
}

PictureDecoder* PictureModule::load(const std::string& path, std::string* reason) {
  void* const symbol = osmik::SharedLibrary::loadSymbol(path, kPictureFunction, reason);
  return symbol == nullptr ? nullptr : reinterpret_cast<PictureFunction>(symbol)();
}

PictureDecoder* PictureModule::decoder(std::string* reason) {
  if (PictureDecoder* const decoder = replacement; decoder != nullptr) return decoder;
  static std::mutex mutex;
  static PictureDecoder* loaded = nullptr;
  const std::lock_guard lock(mutex);
  if (loaded != nullptr) return loaded;
  *reason = std::string(kModuleName) + " is not installed";
  for (const std::string& path : places()) {
    if (!osmik::File::exists(path)) continue;
    loaded = load(path, reason);
    break;
  }
  return loaded;
}

void PictureModule::replace(PictureDecoder* decoder) { replacement = decoder; }

}  // namespace morva
