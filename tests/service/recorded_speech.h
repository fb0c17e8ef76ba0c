// Recorded human speech with its transcription: five sentences of one reader.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

struct Recording {
    std::vector<std::int16_t> samples; // mono, 16 kHz
    std::vector<std::string> words;
};

inline std::vector<std::string> SplitWords(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char character) { return std::tolower(character); });
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

inline std::vector<std::int16_t> ReadWave(const std::string& path) {
    constexpr std::size_t kHeaderBytes = 44;
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (bytes.size() <= kHeaderBytes) {
        throw std::runtime_error("no recording in " + path);
    }
    std::vector<std::int16_t> samples((bytes.size() - kHeaderBytes) / 2);
    std::copy_n(bytes.data() + kHeaderBytes, samples.size() * 2,
                reinterpret_cast<char*>(samples.data()));
    return samples;
}

inline std::vector<Recording> Recordings() {
    const std::string folder = KELVARIN_RECORDED_SPEECH "/";
    std::vector<Recording> recordings;
    std::ifstream transcription(folder + "transcription");
    // One line for each: <s> the words </s> (file)
    for (std::string line; std::getline(transcription, line);) {
        std::vector<std::string> words = SplitWords(line);
        const std::string file = words.back().substr(1, words.back().size() - 2);
        recordings.push_back(
            {ReadWave(folder + file + ".wav"), {words.begin() + 1, words.end() - 2}});
    }
    return recordings;
}

// Words to insert, delete or replace to get from one text to the other.
inline std::size_t WordErrors(const std::vector<std::string>& spoken,
                              const std::vector<std::string>& recognised) {
    std::vector<std::size_t> errors(recognised.size() + 1);
    for (std::size_t i = 0; i < errors.size(); ++i) {
        errors[i] = i;
    }
    for (std::size_t row = 0; row < spoken.size(); ++row) {
        std::size_t diagonal = std::exchange(errors[0], row + 1);
        for (std::size_t column = 0; column < recognised.size(); ++column) {
            const std::size_t replaced = diagonal + (spoken[row] == recognised[column] ? 0 : 1);
            diagonal = errors[column + 1];
            errors[column + 1] = std::min({replaced, errors[column] + 1, diagonal + 1});
        }
    }
    return errors.back();
}
