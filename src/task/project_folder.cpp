#include "task/project_folder.h"

#include <vector>

#include "platform/directory.h"

namespace morva {

std::string findProjectBag(const std::string& projectPath) {
  // The dot before the extension is any character: "2024-01-31-235959_kbin" counts too.
  constexpr const char* kBagName = "^[0-9]{4}-[0-9]{2}-[0-9]{2}-[0-9]{6}.kbin$";
  const std::vector<std::string> names = osmik::Directory::getFileList(projectPath, kBagName);
  return names.empty() ? std::string() : names.front();
}

}  // namespace morva
