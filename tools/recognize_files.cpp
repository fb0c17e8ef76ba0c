// kelvarin-recognize FILE...: what the service's recogniser makes of raw recordings (mono, 16 kHz,
// signed 16 bits, least significant byte first), one line of words for each file. The measure for
// the same recordings sent through a running service.
#include "decoder_pool.h"
#include "recognizer.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace {

static_assert(std::endian::native == std::endian::little);

std::vector<std::int16_t> ReadSamples(const char* path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (bytes.empty()) {
        throw std::runtime_error(std::string("cannot read ") + path);
    }
    std::vector<std::int16_t> samples(bytes.size() / 2);
    std::copy_n(bytes.data(), samples.size() * 2, reinterpret_cast<char*>(samples.data()));
    return samples;
}

std::string WordsIn(std::span<const std::int16_t> samples, service::DecoderPool& pool) {
    service::Recognizer recognizer(pool.Acquire());
    std::vector<std::string> utterances = recognizer.Hear(samples);
    utterances.push_back(recognizer.Finish());

    std::string words;
    for (const std::string& utterance : utterances) {
        if (!words.empty() && !utterance.empty()) {
            words += ' ';
        }
        words += utterance;
    }
    return words;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: kelvarin-recognize FILE...\n";
        return 2;
    }
    try {
        service::DecoderPool pool(1);
        for (int i = 1; i < argc; ++i) {
            std::cout << WordsIn(ReadSamples(argv[i]), pool) << std::endl;
        }
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::cerr << "kelvarin-recognize: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
