// Counts the word errors of recognised text: insertions, deletions and substitutions against a
// reference, by the Levenshtein distance over words.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

// Lower case, without marks; what stands in <> or () belongs to the transcription's notation.
Words ReadWords(const char* path) {
    std::ifstream file(path);
    if (!file) {
        std::cerr << path << ": cannot be read\n";
        std::exit(2);
    }
    Words words;
    for (std::string token; file >> token;) {
        if (token.front() == '<' || token.front() == '(') {
            continue;
        }
        std::string word;
        for (const char letter : token) {
            if (std::isalpha(static_cast<unsigned char>(letter)) != 0 || letter == '\'') {
                word += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
            }
        }
        if (!word.empty()) {
            words.push_back(word);
        }
    }
    return words;
}

std::size_t Distance(const Words& reference, const Words& words) {
    std::vector<std::size_t> row(words.size() + 1);
    for (std::size_t i = 0; i < row.size(); ++i) {
        row[i] = i;
    }
    for (std::size_t r = 1; r <= reference.size(); ++r) {
        std::size_t diagonal = row[0];
        row[0] = r;
        for (std::size_t w = 1; w <= words.size(); ++w) {
            const std::size_t substituted = diagonal + (reference[r - 1] == words[w - 1] ? 0 : 1);
            diagonal = row[w];
            row[w] = std::min({substituted, row[w] + 1, row[w - 1] + 1});
        }
    }
    return row.back();
}

double Percent(const Words& reference, const char* path) {
    const std::size_t errors = Distance(reference, ReadWords(path));
    return 100.0 * static_cast<double>(errors) / static_cast<double>(reference.size());
}

} // namespace

// One listening differs from the next by a few words, and each word is more than a point: the live
// texts are judged by their mean.
int main(int argumentCount, char** arguments) {
    constexpr double kTolerance = 5.0; // per cent of the reference's words
    if (argumentCount < 4) {
        std::cerr
            << "Usage: kelvarin-word-errors REFERENCE DIRECT LIVE...\n"
               "Prints the word errors of each text in per cent of the reference's words.\n"
               "Exit code 1 when the LIVE texts' mean is more than 5 points worse than DIRECT.\n";
        return 2;
    }
    const Words reference = ReadWords(arguments[1]);
    if (reference.empty()) {
        std::cerr << arguments[1] << ": no words\n";
        return 2;
    }
    const double direct = Percent(reference, arguments[2]);
    std::printf("  %5.1f %%  straight into the recogniser\n", direct);
    double sum = 0.0;
    for (int i = 3; i < argumentCount; ++i) {
        const double live = Percent(reference, arguments[i]);
        std::printf("  %5.1f %%  %s\n", live, arguments[i]);
        sum += live;
    }
    const double mean = sum / (argumentCount - 3);
    std::printf("  %5.1f %%  live, on average\n", mean);
    return mean <= direct + kTolerance ? 0 : 1;
}
