// Base64 of one exchange's audio, beside OpenSSL's.
#include "base64.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <vector>

namespace {

std::vector<std::uint8_t> Audio(std::size_t count) {
    std::vector<std::uint8_t> audio(count);
    for (std::size_t i = 0; i < count; ++i) {
        audio[i] = static_cast<std::uint8_t>(i * 2654435761u >> 13);
    }
    return audio;
}

void Encode(benchmark::State& state) {
    const auto audio = Audio(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(Base64Encode(audio.data(), audio.size()));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void OpenSslEncodeBlock(benchmark::State& state) {
    const auto audio = Audio(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        // A fresh text each time, as the encoder gives one.
        std::string text((audio.size() + 2) / 3 * 4 + 1, '\0');
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), audio.data(),
                        static_cast<int>(audio.size()));
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(Encode)->Arg(320)->Arg(3200)->Arg(32768);
BENCHMARK(OpenSslEncodeBlock)->Arg(320)->Arg(3200)->Arg(32768);

} // namespace
