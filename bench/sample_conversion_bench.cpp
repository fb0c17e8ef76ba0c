// One 10 ms packet of stereo floats to 16 kHz, beside the two resamplers that a program would
// otherwise take. They keep a filter or a phase from packet to packet and both channels; the
// converter does less, and must not cost more.
#include "sample_conversion.h"

#include <benchmark/benchmark.h>
#include <samplerate.h>
#include <speex/speex_resampler.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

constexpr int kChannels = 2;

std::vector<float> Packet(std::uint32_t frames) {
    std::vector<float> samples(frames * kChannels);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = 0.7f * std::sin(static_cast<float>(i) * 0.05f);
    }
    return samples;
}

void Converter(benchmark::State& state) {
    const auto rate = static_cast<std::uint32_t>(state.range(0));
    const std::uint32_t frames = rate / 100;
    const auto packet = Packet(frames);
    for (auto _ : state) {
        benchmark::DoNotOptimize(ConvertFloatTo16k(packet.data(), frames, rate, kChannels));
    }
}

void Libsamplerate(benchmark::State& state) {
    const auto rate = static_cast<std::uint32_t>(state.range(0));
    const std::uint32_t frames = rate / 100;
    const auto packet = Packet(frames);
    int error = 0;
    const std::unique_ptr<SRC_STATE, decltype(&src_delete)> converter(
        src_new(SRC_LINEAR, kChannels, &error), &src_delete);
    std::vector<float> out(packet.size());
    SRC_DATA data = {};
    data.data_in = packet.data();
    data.data_out = out.data();
    data.input_frames = static_cast<long>(frames);
    data.output_frames = static_cast<long>(frames);
    data.src_ratio = 16000.0 / rate;
    for (auto _ : state) {
        benchmark::DoNotOptimize(src_process(converter.get(), &data));
        benchmark::ClobberMemory();
    }
}

void SpeexQuality0(benchmark::State& state) {
    const auto rate = static_cast<std::uint32_t>(state.range(0));
    const std::uint32_t frames = rate / 100;
    const auto packet = Packet(frames);
    int error = 0;
    const std::unique_ptr<SpeexResamplerState, decltype(&speex_resampler_destroy)> resampler(
        speex_resampler_init(kChannels, rate, 16000, 0, &error), &speex_resampler_destroy);
    std::vector<float> out(packet.size());
    for (auto _ : state) {
        spx_uint32_t in = frames;
        spx_uint32_t made = frames;
        benchmark::DoNotOptimize(speex_resampler_process_interleaved_float(
            resampler.get(), packet.data(), &in, out.data(), &made));
        benchmark::ClobberMemory();
    }
}

BENCHMARK(Converter)->Arg(48000)->Arg(44100);
BENCHMARK(Libsamplerate)->Arg(48000)->Arg(44100);
BENCHMARK(SpeexQuality0)->Arg(48000)->Arg(44100);

} // namespace
