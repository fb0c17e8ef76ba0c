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

// Prints each text's errors in per cent of the reference's words, and returns their mean.
double MeanOf(const Words& reference, const std::vector<const char*>& paths, const char* what) {
    double sum = 0.0;
    for (const char* const path : paths) {
        const std::size_t errors = Distance(reference, ReadWords(path));
        const double percent =
            100.0 * static_cast<double>(errors) / static_cast<double>(reference.size());
        std::printf("  %5.1f %%  %s\n", percent, path);
        sum += percent;
    }
    const double mean = sum / static_cast<double>(paths.size());
    if (paths.size() > 1) {
        std::printf("  %5.1f %%  %s, on average\n", mean, what);
    }
    return mean;
}

} // namespace

// One listening differs from the next by a few words, and each word is more than a point: the texts
// of either kind are judged by their mean.
int main(int argumentCount, char** arguments) {
    double tolerance = 5.0; // per cent of the reference's words
    std::vector<const char*> direct;
    std::vector<const char*> live;
    int i = 1;
    if (i + 1 < argumentCount && std::string(arguments[i]) == "--tolerance") {
        tolerance = std::stod(arguments[i + 1]);
        i += 2;
    }
    const char* const transcription = i < argumentCount ? arguments[i++] : "";
    for (auto* texts = &direct; i < argumentCount; ++i) {
        if (std::string(arguments[i]) == "--") {
            texts = &live;
        } else {
            texts->push_back(arguments[i]);
        }
    }
    if (direct.empty() || live.empty()) {
        std::cerr
            << "Usage: kelvarin-word-errors [--tolerance POINTS] REFERENCE DIRECT... -- LIVE...\n"
               "Prints the word errors of each text in per cent of the reference's words.\n"
               "Exit code 1 when the mean of the LIVE texts is more than POINTS (5) worse\n"
               "than that of the DIRECT ones.\n";
        return 2;
    }
    const Words reference = ReadWords(transcription);
    if (reference.empty()) {
        std::cerr << transcription << ": no words\n";
        return 2;
    }
    const double straight = MeanOf(reference, direct, "straight into the recogniser");
    return MeanOf(reference, live, "live") <= straight + tolerance ? 0 : 1;
}
