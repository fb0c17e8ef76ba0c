// From whatever an audio device delivers to the one format of the program: 16,000 Hz, mono, signed
// 16 bits. Pure functions: no state, no device, no platform call but the format's structure.
#pragma once

#include <windows.h>
#include <mmreg.h>

#include <cstdint>
#include <vector>

// Sample rate of everything that is delivered, in Hz.
inline constexpr std::uint32_t kServiceSampleRate = 16000;

// True when the samples of `format` are 32- or 64-bit floats rather than integers.
bool IsFloatFormat(const WAVEFORMATEX* format);

// Convert one packet of `frames` frames of `channels` interleaved samples at `sampleRate` Hz: the
// plain mean of the channels, then two-point linear interpolation, then truncation to 16 bits. Each
// packet stands alone; floor(frames * 16000 / sampleRate) samples come out, possibly none. Floats
// are nominally within -1.0 to 1.0; what lies outside is limited, and a NaN becomes full scale.
std::vector<std::int16_t> ConvertFloatTo16k(const float* samples, std::uint32_t frames,
                                            std::uint32_t sampleRate, std::uint32_t channels);
std::vector<std::int16_t> ConvertInt16To16k(const std::int16_t* samples, std::uint32_t frames,
                                            std::uint32_t sampleRate, std::uint32_t channels);

// Converts a packet by its device's mix format. A format that is neither 32-bit float nor 16 bits
// wide yields nothing.
std::vector<std::int16_t> ConvertPacket(const std::uint8_t* packet, std::uint32_t frames,
                                        const WAVEFORMATEX& format, bool isFloat);

// Adds two runs of delivered samples from their first samples on; the longer one's rest passes
// unchanged. Sums outside 16 bits become the nearest value within.
std::vector<std::int16_t> MixWithSaturation(const std::vector<std::int16_t>& a,
                                            const std::vector<std::int16_t>& b);
