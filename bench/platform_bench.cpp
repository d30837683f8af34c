#include <cstdint>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/bench_support.h"
#include "bench/sensor_payload.h"
#include "platform/compress.h"
#include "platform/crc32.h"
#include "platform/str_util.h"

namespace {

using basalt::Compressor;
using morva::bench::bytesOf;
using morva::bench::makeSensorPayload;

void BM_Crc32_compute(benchmark::State& state) {
  const std::string payload = makeSensorPayload(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(Crc32(payload.data(), payload.size()));
  state.SetBytesProcessed(bytesOf(state, payload.size()));
}
BENCHMARK(BM_Crc32_compute)->Arg(64)->Arg(4096)->Arg(1 << 20);

void compress(benchmark::State& state, const Compressor& codec, std::size_t size) {
  const std::string payload = makeSensorPayload(size);
  std::string stored(codec.bound(size), '\0');
  std::int64_t storedSize = 0;
  for (auto _ : state) {
    storedSize = codec.compress(payload.data(), payload.size(), stored.data(), stored.size());
    benchmark::DoNotOptimize(stored.data());
  }
  if (storedSize < 1) state.SkipWithError("the payload was not compressed");
  state.SetBytesProcessed(bytesOf(state, size));
  state.counters["ratio"] = static_cast<double>(storedSize) / static_cast<double>(size);
}

void decompress(benchmark::State& state, const Compressor& codec, std::size_t size) {
  const std::string payload = makeSensorPayload(size);
  std::string stored(codec.bound(size), '\0');
  const std::int64_t storedSize =
      codec.compress(payload.data(), payload.size(), stored.data(), stored.size());
  if (storedSize < 1) {
    state.SkipWithError("the payload was not compressed");
    return;
  }
  stored.resize(static_cast<std::size_t>(storedSize));
  std::string restored;
  for (auto _ : state) {
    const std::int64_t length =
        codec.decompress(stored.data(), stored.size(), payload.size(), &restored);
    benchmark::DoNotOptimize(length);
  }
  if (restored != payload) state.SkipWithError("the payload was not restored");
  state.SetBytesProcessed(bytesOf(state, size));
}

template <typename Codec>
void registerCodec(const std::string& codec) {
  for (const std::size_t size :
       {std::size_t{4} << 10, std::size_t{256} << 10, std::size_t{4} << 20}) {
    const std::string suffix = codec + "/" + std::to_string(size);
    benchmark::RegisterBenchmark(
        ("BM_Compressor_compress/" + suffix).c_str(),
        [size](benchmark::State& state) { compress(state, Codec(), size); });
    benchmark::RegisterBenchmark(
        ("BM_Compressor_decompress/" + suffix).c_str(),
        [size](benchmark::State& state) { decompress(state, Codec(), size); });
  }
}

[[maybe_unused]] const bool kCodecsRegistered = [] {
  registerCodec<basalt::Lz4Compress>("lz4");
  registerCodec<basalt::ZstdCompress>("zstd");
  return true;
}();

// One row of the kind that tables are made of; bytes processed are those of the text.
void BM_StrUtil_format(benchmark::State& state) {
  std::size_t bytes = 0;
  double value = 1.25;
  for (auto _ : state) {
    const std::string row = osmik::StrUtil::format("%u,%llu,%lf,%lf,%lf,%lf,%lf,%lf\n", 42U,
                                                   std::uint64_t{1700000000123456}, value, -value,
                                                   9.80665, 0.001 * value, -0.002, 0.003);
    bytes = row.size();
    value += 1e-6;
    benchmark::DoNotOptimize(row.data());
  }
  state.SetBytesProcessed(bytesOf(state, bytes));
}
BENCHMARK(BM_StrUtil_format);

}  // namespace
