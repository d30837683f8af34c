#include "export/export_fixture.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace morva::test {

namespace fs = std::filesystem;

std::string ExportTest::makeOut() const {
  fs::create_directory(dir_ / "out");
  return dir_ / "out";
}

MorvaBag& ExportTest::bag() {
  if (recorded_) return bag_;
  const std::string path = recording_.write(dir_ / "recording.kbag");
  if (bag_.open(path, MorvaBag::BagMode::kRead) != MorvaBag::kOpenOk) {
    throw std::runtime_error("cannot open " + path);
  }
  recorded_ = true;
  return bag_;
}

MorvaBag::View ExportTest::view(const std::string& topic) { return bag().getView(topic, 0, -1); }

void ExportTest::makeDirectory(const std::string& name) const {
  fs::create_directories(path(name));
}

std::string ExportTest::output(const std::string& name) const { return readFile(path(name)); }

std::vector<std::string> ExportTest::outputs() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(out_)) {
    if (entry.is_regular_file()) names.push_back(fs::relative(entry.path(), out_).string());
  }
  std::ranges::sort(names);
  return names;
}

std::vector<std::string> ExportTest::linesOf(const std::string& className) const {
  std::vector<std::string> lines = log_.lines();
  std::erase_if(lines, [&](const std::string& line) {
    return line.find("[" + className + "::") == std::string::npos;
  });
  return lines;
}

}  // namespace morva::test
