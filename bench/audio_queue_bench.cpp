// The buffer between capture and exchange, with nothing and with 100 MB waiting.
#include "audio_queue.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

constexpr std::size_t kMegabyte = 1'000'000;

// One packet in and one out: what waits stays the same.
void PushAndTake(benchmark::State& state) {
    AudioQueue queue(200 * kMegabyte);
    const std::vector<std::uint8_t> waiting(kMegabyte);
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        queue.Append(waiting.data(), waiting.size());
    }
    const std::vector<std::uint8_t> chunk(static_cast<std::size_t>(state.range(1)));
    std::vector<std::uint8_t> slice;
    for (auto _ : state) {
        queue.Append(chunk.data(), chunk.size());
        queue.Take(slice, chunk.size());
        benchmark::DoNotOptimize(slice.data());
    }
}

BENCHMARK(PushAndTake)
    ->ArgNames({"MB_waiting", "bytes"})
    ->ArgsProduct({{0, 100}, {320, 3200, 32768}});

} // namespace
