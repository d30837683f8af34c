#include "cli/recording.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>

namespace morva::test {

void fail(const std::string& message) {
  std::cerr << "make_cases: " << message << "\n";
  std::exit(1);
}

Recording::Recording(const std::string& path, const std::vector<std::string>& topics,
                     CompressionType compression, const std::string& privateData)
    : path_(path) {
  std::filesystem::remove(path);
  bag_.topics = topics;
  bag_.compressionType = compression;
  if (bag_.open(path, BagMode::kWrite, privateData) != MorvaBag::kOpenOk)
    fail("cannot create " + path);
}

void Recording::write(const std::string& topic, std::int64_t firstUs, std::int64_t secondUs,
                      const std::string& payload, std::uint32_t count) {
  const bool compress = bag_.compressionType != CompressionType::kNone;
  const std::string header = MorvaBag::makeMessageHeader(compress, count, firstUs, secondUs);
  if (!bag_.writeMessage(topic, firstUs, header, payload)) fail("cannot write to " + path_);
}

void Recording::close() {
  if (!bag_.close()) fail("cannot finish " + path_);
}

}  // namespace morva::test
