#include "sample_conversion.h"

#include <ks.h>
#include <ksmedia.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <type_traits>

namespace {

constexpr float kFloatScale = 32767.0f; // on the negative side too
constexpr float kHighest = 32767.0f;
constexpr float kLowest = -32768.0f;

// Written so that a NaN, which compares false, becomes the highest value.
std::int16_t Quantize(float value) {
    const float below = value < kHighest ? value : kHighest;
    const float limited = below < kLowest ? kLowest : below;
    return static_cast<std::int16_t>(static_cast<std::int32_t>(limited));
}

std::int16_t QuantizeAs(float value, const float* /*source*/) {
    return Quantize(value * kFloatScale);
}
std::int16_t QuantizeAs(float value, const std::int16_t* /*source*/) {
    return Quantize(value);
}

// The mean of one frame. A channel count known to the compiler (kChannels above 0) lets it work on
// several frames at a time.
template <std::uint32_t kChannels, typename Sample>
float MonoAt(const Sample* samples, std::size_t frame, std::uint32_t channels) {
    const std::uint32_t count = kChannels > 0 ? kChannels : channels;
    const Sample* first = samples + frame * count;
    float sum = 0.0f;
    for (std::uint32_t channel = 0; channel < count; ++channel) {
        sum += static_cast<float>(first[channel]);
    }
    return sum / static_cast<float>(count);
}

// At a whole multiple of the service's rate every output stands exactly on an input frame: for each
// step up to kLargestStep the double nearest to 1 / step is off by no more than a quarter of a unit
// in the last place of 1, which rounding takes away again in i / ratio. The frame behind still
// enters with weight zero, which counts when it is infinite or a NaN.
constexpr std::uint32_t kLargestStep = 12;

template <std::uint32_t kChannels, typename Sample>
void ConvertByWholeStep(const Sample* samples, std::uint32_t frames, std::uint32_t channels,
                        std::uint32_t step, std::vector<std::int16_t>& out) {
    for (std::size_t i = 0; i < out.size(); ++i) {
        const std::size_t frame = i * step;
        float value = MonoAt<kChannels>(samples, frame, channels);
        if constexpr (std::is_floating_point_v<Sample>) {
            const std::size_t next = std::min<std::size_t>(frame + 1, frames - 1);
            value += MonoAt<kChannels>(samples, next, channels) * 0.0f;
        }
        out[i] = QuantizeAs(value, samples);
    }
}

template <std::uint32_t kChannels, typename Sample>
void ConvertAtServiceRate(const Sample* samples, std::uint32_t channels,
                          std::vector<std::int16_t>& out) {
    for (std::size_t i = 0; i < out.size(); ++i) {
        out[i] = QuantizeAs(MonoAt<kChannels>(samples, i, channels), samples);
    }
}

template <std::uint32_t kChannels, typename Sample>
void ConvertByInterpolation(const Sample* samples, std::uint32_t frames, std::uint32_t channels,
                            double ratio, std::vector<std::int16_t>& out) {
    const auto mono = std::make_unique_for_overwrite<float[]>(frames);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        mono[frame] = MonoAt<kChannels>(samples, frame, channels);
    }
    for (std::size_t i = 0; i < out.size(); ++i) {
        // Each position is a division of its own: an accumulated step, or a product with the
        // inverse, would drift and give other bits.
        const double position = static_cast<double>(i) / ratio;
        const auto index = static_cast<std::size_t>(position);
        const double fraction = position - static_cast<double>(index);
        const std::size_t next = std::min<std::size_t>(index + 1, frames - 1);
        const double value = static_cast<double>(mono[index]) * (1.0 - fraction) +
                             static_cast<double>(mono[next]) * fraction;
        out[i] = QuantizeAs(static_cast<float>(value), samples);
    }
}

template <std::uint32_t kChannels, typename Sample>
std::vector<std::int16_t> ConvertChannels(const Sample* samples, std::uint32_t frames,
                                          std::uint32_t sampleRate, std::uint32_t channels) {
    if (sampleRate == kServiceSampleRate) {
        std::vector<std::int16_t> out(frames);
        ConvertAtServiceRate<kChannels>(samples, channels, out);
        return out;
    }
    const double ratio = static_cast<double>(kServiceSampleRate) / sampleRate;
    std::vector<std::int16_t> out(static_cast<std::size_t>(frames * ratio));
    const std::uint32_t step = sampleRate / kServiceSampleRate;
    if (sampleRate % kServiceSampleRate == 0 && step <= kLargestStep) {
        ConvertByWholeStep<kChannels>(samples, frames, channels, step, out);
    } else {
        ConvertByInterpolation<kChannels>(samples, frames, channels, ratio, out);
    }
    return out;
}

template <typename Sample>
std::vector<std::int16_t> Convert(const Sample* samples, std::uint32_t frames,
                                  std::uint32_t sampleRate, std::uint32_t channels) {
    if (frames == 0 || sampleRate == 0 || channels == 0) {
        return {};
    }
    switch (channels) {
    case 1:
        return ConvertChannels<1>(samples, frames, sampleRate, channels);
    case 2:
        return ConvertChannels<2>(samples, frames, sampleRate, channels);
    default:
        return ConvertChannels<0>(samples, frames, sampleRate, channels);
    }
}

} // namespace

bool IsFloatFormat(const WAVEFORMATEX* format) {
    if (format->wFormatTag == WAVE_FORMAT_IEEE_FLOAT) {
        return true;
    }
    constexpr WORD kExtensibleSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
    if (format->wFormatTag != WAVE_FORMAT_EXTENSIBLE || format->cbSize < kExtensibleSize) {
        return false;
    }
    WAVEFORMATEXTENSIBLE extensible;
    std::memcpy(&extensible, format, sizeof extensible);
    const GUID subFormat = extensible.SubFormat;
    return subFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
}

std::vector<std::int16_t> ConvertFloatTo16k(const float* samples, std::uint32_t frames,
                                            std::uint32_t sampleRate, std::uint32_t channels) {
    return Convert(samples, frames, sampleRate, channels);
}

std::vector<std::int16_t> ConvertInt16To16k(const std::int16_t* samples, std::uint32_t frames,
                                            std::uint32_t sampleRate, std::uint32_t channels) {
    return Convert(samples, frames, sampleRate, channels);
}

std::vector<std::int16_t> MixWithSaturation(const std::vector<std::int16_t>& a,
                                            const std::vector<std::int16_t>& b) {
    const auto& longer = a.size() >= b.size() ? a : b;
    const auto& shorter = a.size() >= b.size() ? b : a;
    std::vector<std::int16_t> sum(longer);
    for (std::size_t i = 0; i < shorter.size(); ++i) {
        sum[i] = static_cast<std::int16_t>(std::clamp(longer[i] + shorter[i], -32768, 32767));
    }
    return sum;
}

std::vector<std::int16_t> ConvertPacket(const std::uint8_t* packet, std::uint32_t frames,
                                        const WAVEFORMATEX& format, bool isFloat) {
    if (isFloat && format.wBitsPerSample == 32) {
        return ConvertFloatTo16k(reinterpret_cast<const float*>(packet), frames,
                                 format.nSamplesPerSec, format.nChannels);
    }
    if (format.wBitsPerSample == 16) {
        return ConvertInt16To16k(reinterpret_cast<const std::int16_t*>(packet), frames,
                                 format.nSamplesPerSec, format.nChannels);
    }
    return {};
}
