#include "work_place.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

#include "target.h"

namespace morva::fuzz {
namespace {

namespace fs = std::filesystem;

std::string makeDir() {
  const char* const given = std::getenv("KBAG_FUZZ_DIR");
  std::error_code error;
  std::string name = given != nullptr                      ? given
                     : fs::is_directory("/dev/shm", error) ? "/dev/shm"
                                                           : fs::temp_directory_path().string();
  name += "/kbag-fuzz-XXXXXX";
  expect(::mkdtemp(name.data()) != nullptr, "no folder for the files of a run can be made");
  return fs::canonical(name).string();
}

}  // namespace

WorkPlace& WorkPlace::get() {
  static WorkPlace place;
  return place;
}

WorkPlace::WorkPlace()
    : dir_(makeDir()), bag_(dir_ + "/x.kbag"), side_(bag_ + ".index"), out_(dir_ + "/out") {}

WorkPlace::~WorkPlace() {
  std::error_code ignored;
  fs::remove_all(dir_, ignored);
}

bool WorkPlace::open(const RecordingInput& input, BagReader* reader) {
  put(input);
  const int code = reader->open(bag_);
  return code == BagFile::kOpenOk || code == BagFile::kOpenNoIndex;
}

void WorkPlace::putBag(const std::string& path, std::string_view bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const auto size = static_cast<ssize_t>(bytes.size());
  expect(fd >= 0 && ::write(fd, bytes.data(), bytes.size()) == size && ::close(fd) == 0,
         "an input cannot be written");
}

void WorkPlace::put(const RecordingInput& input) {
  putBag(bag_, input.bag);
  if (input.hasSide) {
    putBag(side_, input.side);
  } else {
    removeSide();
  }
}

void WorkPlace::removeSide() { ::unlink(side_.c_str()); }

const std::string& WorkPlace::freshOut() {
  fs::remove_all(out_);
  fs::create_directory(out_);
  return out_;
}

void WorkPlace::expectNothingElse() const {
  for (const auto& entry : fs::directory_iterator(dir_)) {
    const std::string path = entry.path().string();
    expect(path == bag_ || path == side_ || path == out_,
           "something was written outside of the output folder");
  }
}

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  expect(file.is_open(), "a file that was made cannot be read");
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace morva::fuzz
