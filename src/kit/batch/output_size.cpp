#include "kit/batch/output_size.h"

#include <filesystem>
#include <system_error>

namespace morva::batch {
namespace {

namespace fs = std::filesystem;

bool isManifest(const std::string& name) {
  return name.starts_with("manifest") || name.starts_with(".manifest");
}

}  // namespace

OutputSize measureOutput(const std::string& outputPath) {
  OutputSize size;
  std::error_code error;
  for (fs::recursive_directory_iterator entry(outputPath, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (entry.depth() == 0 && name == kLogFolder) entry.disable_recursion_pending();
    if (entry.depth() == 0 && isManifest(name)) continue;
    std::error_code entryError;
    if (entry->is_symlink(entryError) || !entry->is_regular_file(entryError)) continue;
    const std::uintmax_t bytes = entry->file_size(entryError);
    size.files += 1;
    size.bytes += entryError ? 0 : bytes;
  }
  return size;
}

}  // namespace morva::batch
