#include "support/real_data_dir.h"

#include <filesystem>
#include <system_error>

namespace morva::test {

std::string realDataDir() {
  std::error_code error;
  return std::filesystem::is_directory(KBAG_REAL_DATA, error) ? KBAG_REAL_DATA : "";
}

}  // namespace morva::test
