#include "sample_conversion.h"

#include <gtest/gtest.h>
#include <ks.h>
#include <ksmedia.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>

namespace {

// ---- The conversion as it is defined, step by step, with no thought of speed -------------------

template <typename Sample>
std::vector<std::int16_t> ByDefinition(const Sample* samples, std::uint32_t frames,
                                       std::uint32_t sampleRate, std::uint32_t channels) {
    std::vector<float> mono(frames);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        float sum = 0.0f;
        for (std::size_t channel = 0; channel < channels; ++channel) {
            sum += static_cast<float>(samples[frame * channels + channel]);
        }
        mono[frame] = sum / static_cast<float>(channels);
    }
    std::vector<float> values = mono;
    if (sampleRate != 16000) {
        const double ratio = 16000.0 / sampleRate;
        values.resize(static_cast<std::size_t>(frames * ratio));
        for (std::size_t i = 0; i < values.size(); ++i) {
            const double pos = static_cast<double>(i) / ratio;
            const auto idx = static_cast<std::size_t>(pos);
            const double frac = pos - static_cast<double>(idx);
            const std::size_t next = idx + 1 < frames - 1 ? idx + 1 : frames - 1;
            values[i] = static_cast<float>(static_cast<double>(mono[idx]) * (1.0 - frac) +
                                           static_cast<double>(mono[next]) * frac);
        }
    }
    std::vector<std::int16_t> out;
    for (float value : values) {
        if (std::is_same_v<Sample, float>) {
            value *= 32767.0f;
        }
        if (!(value < 32767.0f)) {
            value = 32767.0f;
        }
        if (value < -32768.0f) {
            value = -32768.0f;
        }
        out.push_back(static_cast<std::int16_t>(value));
    }
    return out;
}

// ---- Random packets ----------------------------------------------------------------------------

using Random = std::mt19937;

std::uint32_t Below(Random& random, std::uint32_t limit) {
    return static_cast<std::uint32_t>(random()) % limit;
}

std::uint32_t RandomRate(Random& random) {
    constexpr std::uint32_t kUsual[] = {8000,   11025,  12000,  16000,  22050,  24000, 32000,
                                        44100,  48000,  64000,  80000,  88200,  96000, 112000,
                                        128000, 144000, 160000, 176000, 176400, 192000};
    return Below(random, 2) == 0 ? kUsual[Below(random, std::size(kUsual))]
                                 : 8000 + Below(random, 192000 - 8000 + 1);
}

std::uint32_t RandomFrames(Random& random) {
    // Mostly short ones, where the ends matter; now and then more than a device delivers at once.
    switch (Below(random, 20)) {
    case 0:
        return Below(random, 3000);
    case 1:
    case 2:
        return Below(random, 500);
    default:
        return Below(random, 40);
    }
}

float RandomSample(Random& random, bool wild, const float* /*type*/) {
    constexpr float kWild[] = {std::numeric_limits<float>::quiet_NaN(),
                               std::numeric_limits<float>::infinity(),
                               -std::numeric_limits<float>::infinity(),
                               std::numeric_limits<float>::max(),
                               std::numeric_limits<float>::lowest(),
                               std::numeric_limits<float>::denorm_min(),
                               -0.0f,
                               1.0f,
                               -1.0f,
                               1.5f,
                               -1.5f,
                               32767.0f};
    if (wild && Below(random, 8) == 0) {
        return kWild[Below(random, std::size(kWild))];
    }
    const auto bits = static_cast<std::int32_t>(random());
    return static_cast<float>(bits) / 1.9e9f;
}

std::int16_t RandomSample(Random& random, bool wild, const std::int16_t* /*type*/) {
    constexpr std::int16_t kWild[] = {-32768, 32767, 0, 1, -1};
    if (wild && Below(random, 2) == 0) {
        return kWild[Below(random, std::size(kWild))];
    }
    return static_cast<std::int16_t>(random());
}

// A full run takes about a minute without a sanitizer; slower builds say how many they do.
std::size_t RandomPackets() {
    const char* wanted = std::getenv("KELVARIN_RANDOM_PACKETS");
    return wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : 1'500'000;
}

template <typename Sample>
void CompareWithDefinition() {
    Random random(4);
    std::vector<Sample> samples;
    for (std::size_t packet = 0; packet < RandomPackets(); ++packet) {
        const std::uint32_t frames = RandomFrames(random);
        const std::uint32_t rate = RandomRate(random);
        const std::uint32_t channels = 1 + Below(random, 8);
        const bool wild = Below(random, 3) == 0;
        samples.resize(std::size_t{frames} * channels);
        for (Sample& sample : samples) {
            sample = RandomSample(random, wild, samples.data());
        }
        const auto expected = ByDefinition(samples.data(), frames, rate, channels);
        const auto actual = [&] {
            if constexpr (std::is_same_v<Sample, float>) {
                return ConvertFloatTo16k(samples.data(), frames, rate, channels);
            } else {
                return ConvertInt16To16k(samples.data(), frames, rate, channels);
            }
        }();
        ASSERT_EQ(actual, expected) << "packet " << packet << ": " << frames << " frames of "
                                    << channels << " channels at " << rate << " Hz";
    }
}

TEST(SampleConversion, GivesTheDefinedBitsForRandomFloatPackets) {
    CompareWithDefinition<float>();
}

TEST(SampleConversion, GivesTheDefinedBitsForRandomInt16Packets) {
    CompareWithDefinition<std::int16_t>();
}

// ---- Values worked out by hand: they hold the definition above to account ----------------------

std::vector<float> Ramp(std::size_t frames) {
    std::vector<float> ramp(frames);
    for (std::size_t i = 0; i < frames; ++i) {
        ramp[i] = static_cast<float>(i) / 1024.0f;
    }
    return ramp;
}

TEST(SampleConversion, TakesEveryThirdSampleAt48kHz) {
    std::vector<std::int16_t> input(480);
    std::vector<std::int16_t> expected;
    for (std::size_t i = 0; i < input.size(); ++i) {
        input[i] = static_cast<std::int16_t>(i * 7);
        if (i % 3 == 0) {
            expected.push_back(input[i]);
        }
    }
    EXPECT_EQ(ConvertInt16To16k(input.data(), 480, 48000, 1), expected);
}

TEST(SampleConversion, HoldsTheLastFrameAtThePacketsEnd) {
    std::vector<std::int16_t> input(80);
    for (std::size_t i = 0; i < input.size(); ++i) {
        input[i] = static_cast<std::int16_t>(i * 10);
    }
    const auto out = ConvertInt16To16k(input.data(), 80, 8000, 1);
    ASSERT_EQ(out.size(), 160u);
    EXPECT_EQ(out[1], 5);
    EXPECT_EQ(out[157], 785);
    EXPECT_EQ(out[158], 790);
    EXPECT_EQ(out[159], 790);
}

TEST(SampleConversion, DropsTheFractionOfAPacket) {
    const auto ramp = Ramp(448);
    EXPECT_EQ(ConvertFloatTo16k(ramp.data(), 441, 44100, 1).size(), 160u);
    EXPECT_EQ(ConvertFloatTo16k(ramp.data(), 448, 44100, 1).size(), 162u);
    EXPECT_EQ(ConvertFloatTo16k(ramp.data(), 0, 48000, 1).size(), 0u);
    EXPECT_EQ(ConvertFloatTo16k(ramp.data(), 2, 48000, 1).size(), 0u);
    EXPECT_EQ(ConvertFloatTo16k(ramp.data(), 3, 48000, 1).size(), 1u);
    EXPECT_EQ(ConvertFloatTo16k(ramp.data(), 7, 16000, 1).size(), 7u);
    EXPECT_EQ(ConvertFloatTo16k(ramp.data(), 441, 44100, 1)[1], 88); // 2.75625 / 1024 * 32767
}

TEST(SampleConversion, ScalesLimitsAndTruncates) {
    const float floats[] = {1.0f, -1.0f, 1.5f, -1.5f,
                            0.5f, -0.5f, 0.0f, std::numeric_limits<float>::quiet_NaN()};
    EXPECT_EQ(ConvertFloatTo16k(floats, 8, 16000, 1),
              (std::vector<std::int16_t>{32767, -32767, 32767, -32768, 16383, -16383, 0, 32767}));
    const std::int16_t pairs[] = {3, 4, -3, -4, 32767, 32767, -32768, -32768};
    EXPECT_EQ(ConvertInt16To16k(pairs, 4, 16000, 2),
              (std::vector<std::int16_t>{3, -3, 32767, -32768}));
}

TEST(SampleConversion, RefusesFormatsThatNoDeviceHas) {
    const float sample = 0.5f;
    EXPECT_TRUE(ConvertFloatTo16k(&sample, 1, 0, 1).empty());
    EXPECT_TRUE(ConvertFloatTo16k(&sample, 1, 16000, 0).empty());
}

// ---- Formats -----------------------------------------------------------------------------------

WAVEFORMATEXTENSIBLE Format(int tag, int bits, int extraBytes, const GUID& subFormat) {
    WAVEFORMATEXTENSIBLE format = {};
    format.Format.wFormatTag = static_cast<WORD>(tag);
    format.Format.nChannels = 1;
    format.Format.nSamplesPerSec = 16000;
    format.Format.wBitsPerSample = static_cast<WORD>(bits);
    format.Format.cbSize = static_cast<WORD>(extraBytes);
    format.SubFormat = subFormat;
    return format;
}

TEST(SampleConversion, ChoosesTheConverterByTheMixFormat) {
    const GUID isFloat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    const GUID isPcm = KSDATAFORMAT_SUBTYPE_PCM;
    const struct {
        const char* name;
        WAVEFORMATEXTENSIBLE format;
        bool floats;
        std::size_t samples; // out of four bytes of one frame
    } cases[] = {
        {"plain float", Format(3, 32, 0, isPcm), true, 1},
        {"extensible float", Format(0xFFFE, 32, 22, isFloat), true, 1},
        {"extensible float, too short to say so", Format(0xFFFE, 32, 21, isFloat), false, 0},
        {"extensible PCM", Format(0xFFFE, 16, 22, isPcm), false, 1},
        {"plain PCM", Format(1, 16, 0, isFloat), false, 1},
        {"24-bit PCM", Format(0xFFFE, 24, 22, isPcm), false, 0},
        {"32-bit PCM", Format(1, 32, 0, isPcm), false, 0},
        {"64-bit float", Format(3, 64, 0, isPcm), true, 0},
        {"float that calls itself 16 bits wide", Format(3, 16, 0, isPcm), true, 1},
    };
    const std::uint8_t frame[8] = {};
    for (const auto& [name, format, floats, samples] : cases) {
        EXPECT_EQ(IsFloatFormat(&format.Format), floats) << name;
        EXPECT_EQ(ConvertPacket(frame, 1, format.Format, floats).size(), samples) << name;
    }
}

// ---- Mixing ------------------------------------------------------------------------------------

TEST(MixWithSaturation, AddsWhereBothHaveSamplesAndPassesTheRest) {
    using Samples = std::vector<std::int16_t>;
    const struct {
        Samples a;
        Samples b;
        Samples sum;
    } cases[] = {
        {{1, 2, 3}, {10}, {11, 2, 3}},
        {{10}, {1, 2, 3}, {11, 2, 3}},
        {{}, {5, -6}, {5, -6}},
        {{30000, -30000, 32767}, {30000, -30000, -32768}, {32767, -32768, -1}},
    };
    for (const auto& [a, b, sum] : cases) {
        EXPECT_EQ(MixWithSaturation(a, b), sum);
    }
}

} // namespace
