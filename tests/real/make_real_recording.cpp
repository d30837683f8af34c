// make_real_recording OUT.kbag [none|lz4|zstd]: records the real sensor data, for looking at by
// hand.
#include <cstdio>
#include <exception>
#include <string>

#include "real/real_data.h"
#include "real/real_recording.h"
#include "support/real_data_dir.h"

int main(int argc, char** argv) {
  const std::string codec = argc > 2 ? argv[2] : "none";
  if (argc < 2) return 2;
  const auto compression = codec == "lz4"    ? morva::CompressionType::kLz4
                           : codec == "zstd" ? morva::CompressionType::kZstd
                                             : morva::CompressionType::kNone;
  try {
    const morva::test::RealData data = morva::test::readRealData(morva::test::realDataDir());
    for (const auto& [topic, count] : morva::test::recordRealData(data, argv[1], compression)) {
      std::printf("%s: %zu messages, %zu samples\n", topic.c_str(), count.messages, count.samples);
    }
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
  return 0;
}
