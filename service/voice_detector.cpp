#include "voice_detector.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace service {
namespace {

constexpr std::size_t kFourier = 256; // samples in a frame of the spectrum
constexpr std::size_t kHop = 128;
constexpr std::size_t kBins = kFourier / 2 + 1;
constexpr std::size_t kFrames = 4; // of a window
constexpr std::size_t kTaps = 3;   // of each convolution
constexpr std::size_t kGates = 512;

template <std::size_t In, std::size_t Out, std::size_t Stride>
struct Convolution {
    std::array<std::array<float, In * kTaps>, Out> weights;
    std::array<float, Out> bias;
};

// As they stand in the file.
struct VoiceWeights {
    std::array<std::array<float, kFourier>, 2 * kBins> fourier; // real parts, then imaginary ones
    Convolution<kBins, 128, 1> first;
    Convolution<128, 64, 2> second;
    Convolution<64, 64, 2> third;
    Convolution<64, 128, 1> fourth;
    std::array<std::array<float, 128>, kGates> ofInput; // gates: input, forget, cell, output
    std::array<std::array<float, 128>, kGates> ofHidden;
    std::array<float, kGates> inputBias;
    std::array<float, kGates> hiddenBias;
    std::array<float, 128> last;
    float lastBias;
};
static_assert(sizeof(VoiceWeights) == 1'238'532, "the size of the file");

// Several sums side by side, which the compiler makes vector instructions of.
float Dot(const float* a, const float* b, std::size_t count) {
    constexpr std::size_t kLanes = 8;
    std::array<float, kLanes> sums{};
    const std::size_t whole = count - count % kLanes;
    for (std::size_t i = 0; i < whole; i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            sums[lane] += a[i + lane] * b[i + lane];
        }
    }
    return std::inner_product(a + whole, a + count, b + whole,
                              std::accumulate(sums.begin(), sums.end(), 0.0F));
}

float Sigmoid(float value) {
    return 1.0F / (1.0F + std::exp(-value));
}

// Channels of one moment stand together.
template <std::size_t Channels, std::size_t Frames>
using Features = std::array<std::array<float, Channels>, Frames>;

// With a frame of zeros at either end, and no negative results.
template <std::size_t In, std::size_t Out, std::size_t Stride, std::size_t Frames>
auto Apply(const Convolution<In, Out, Stride>& layer, const Features<In, Frames>& input) {
    Features<Out, (Frames - 1) / Stride + 1> output;
    for (std::size_t frame = 0; frame < output.size(); ++frame) {
        std::array<float, In * kTaps> column{}; // what the weights of one output meet
        for (std::size_t tap = 0; tap < kTaps; ++tap) {
            const std::size_t from = frame * Stride + tap; // one too many, for the frame of zeros
            for (std::size_t channel = 0; from > 0 && from <= Frames && channel < In; ++channel) {
                column[channel * kTaps + tap] = input[from - 1][channel];
            }
        }
        for (std::size_t channel = 0; channel < Out; ++channel) {
            const float sum = Dot(layer.weights[channel].data(), column.data(), column.size());
            output[frame][channel] = std::max(0.0F, sum + layer.bias[channel]);
        }
    }
    return output;
}

Features<kBins, kFrames> Spectrum(const VoiceWeights& weights, const float* samples) {
    Features<kBins, kFrames> spectrum;
    for (std::size_t frame = 0; frame < kFrames; ++frame) {
        const float* const from = samples + frame * kHop;
        for (std::size_t bin = 0; bin < kBins; ++bin) {
            const float real = Dot(weights.fourier[bin].data(), from, kFourier);
            const float imaginary = Dot(weights.fourier[bin + kBins].data(), from, kFourier);
            spectrum[frame][bin] = std::sqrt(real * real + imaginary * imaginary);
        }
    }
    return spectrum;
}

} // namespace

extern "C" const VoiceWeights kelvarin_voice_weights; // voice_weights.cpp

float VoiceDetector::Probability(std::span<const std::int16_t, kWindow> window) {
    constexpr float kFullScale = 32'768.0F;
    const VoiceWeights& weights = kelvarin_voice_weights;

    std::array<float, kContext + kWindow + kContext> samples; // the end mirrored
    std::ranges::copy(context_, samples.begin());
    std::ranges::transform(window, samples.begin() + kContext, [](std::int16_t sample) {
        return static_cast<float>(sample) / kFullScale;
    });
    const auto end = samples.begin() + kContext + kWindow;
    std::copy(end - kContext, end, context_.begin());
    std::reverse_copy(end - kContext - 1, end - 1, end);

    const auto features = Apply(
        weights.fourth,
        Apply(weights.third,
              Apply(weights.second, Apply(weights.first, Spectrum(weights, samples.data())))))[0];

    std::array<float, kGates> gates;
    for (std::size_t i = 0; i < kGates; ++i) {
        gates[i] = weights.inputBias[i] + weights.hiddenBias[i] +
                   Dot(weights.ofInput[i].data(), features.data(), features.size()) +
                   Dot(weights.ofHidden[i].data(), hidden_.data(), kState);
    }
    float sum = weights.lastBias;
    for (std::size_t i = 0; i < kState; ++i) {
        cell_[i] = Sigmoid(gates[kState + i]) * cell_[i] +
                   Sigmoid(gates[i]) * std::tanh(gates[2 * kState + i]);
        hidden_[i] = Sigmoid(gates[3 * kState + i]) * std::tanh(cell_[i]);
        sum += weights.last[i] * std::max(0.0F, hidden_[i]);
    }
    return Sigmoid(sum);
}

namespace {

constexpr float kVoice = 0.5F;
constexpr float kNoVoice = 0.35F; // between the two it stays as it is
constexpr int kWindowsToOpen = 3; // shorter than any word; sounds of music are often shorter still
constexpr int kWindowsToClose = 10;          // 0.32 s, a pause between words
constexpr std::size_t kBeforeSamples = 4800; // 0.3 s: words begin softly

} // namespace

std::vector<std::int16_t> VoiceGate::Pass(std::span<const std::int16_t> samples) {
    std::vector<std::int16_t> heard;
    while (!samples.empty()) {
        const auto part = samples.first(std::min(samples.size(), window_.size() - filled_));
        samples = samples.subspan(part.size());
        std::ranges::copy(part, window_.begin() + static_cast<std::ptrdiff_t>(filled_));
        if (open_) { // no word waits for its window
            heard.insert(heard.end(), part.begin(), part.end());
        }
        filled_ += part.size();
        if (filled_ == window_.size()) {
            filled_ = 0;
            Judge(heard);
        }
    }
    return heard;
}

void VoiceGate::Judge(std::vector<std::int16_t>& heard) {
    const float probability = detector_.Probability(window_);
    const bool against = open_ ? probability < kNoVoice : probability >= kVoice;
    windowsAgainst_ = against ? windowsAgainst_ + 1 : 0;
    const bool turns = windowsAgainst_ == (open_ ? kWindowsToClose : kWindowsToOpen);
    if (turns) {
        windowsAgainst_ = 0;
    }
    if (open_) {
        open_ = !turns;
        return;
    }

    before_.insert(before_.end(), window_.begin(), window_.end());
    if (turns) {
        open_ = true;
        heard.insert(heard.end(), before_.begin(), before_.end());
        before_.clear();
        return;
    }
    constexpr std::size_t kKept = kBeforeSamples + (kWindowsToOpen - 1) * VoiceDetector::kWindow;
    if (before_.size() > kKept) {
        before_.erase(before_.begin(), before_.end() - kKept);
    }
    heard.insert(heard.end(), window_.size(), 0);
}

} // namespace service
