#ifndef MORVA_BENCH_BENCH_SUPPORT_H_
#define MORVA_BENCH_BENCH_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdlib.h>
#include <string>
#include <system_error>
#include <utility>

#include <benchmark/benchmark.h>

#include "morva/records.h"

namespace morva::bench {

/// A directory of its own under the system's place for temporary files; removed with all it holds.
class ScratchDir {
 public:
  ScratchDir() {
    std::string name = (std::filesystem::temp_directory_path() / "kbag-bench-XXXXXX").string();
    if (::mkdtemp(name.data()) != nullptr) path_ = name;
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  ~ScratchDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// Name in benchmarks, and value, of every codec.
inline constexpr std::pair<const char*, CompressionType> kCodecs[] = {
    {"none", CompressionType::kNone},
    {"lz4", CompressionType::kLz4},
    {"zstd", CompressionType::kZstd}};

inline std::int64_t bytesOf(const benchmark::State& state, std::size_t bytesEach) {
  return static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytesEach);
}

}  // namespace morva::bench

#endif  // MORVA_BENCH_BENCH_SUPPORT_H_
