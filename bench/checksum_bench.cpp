// The two checksums over one fragment of a firmware image and over a short packet.

#include "platform/api/checksum.h"

#include <benchmark/benchmark.h>
#include <vector>

namespace {

void crc16_of(benchmark::State& state) {
  const std::vector<std::uint8_t> bytes(static_cast<std::size_t>(state.range(0)), 0x5A);
  std::uint16_t value = 0xFFFF;
  for (auto _ : state) {
    benchmark::DoNotOptimize(value = crc16(bytes.data(), bytes.size(), value));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(crc16_of)->Arg(40)->Arg(1028);

void crc32_of(benchmark::State& state) {
  const std::vector<std::uint8_t> bytes(static_cast<std::size_t>(state.range(0)), 0x5A);
  std::uint32_t value = 0xFFFFFFFFU;
  for (auto _ : state) {
    benchmark::DoNotOptimize(value = crc32(bytes.data(), bytes.size(), value));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(crc32_of)->Arg(1024);

} // namespace

BENCHMARK_MAIN();
