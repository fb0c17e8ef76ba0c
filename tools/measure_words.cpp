// kelvarin-measure-words FOLDER [tuning | figures] [ERRORS]: how well the service's engines
// recognise and translate the recordings that scripts/measure-words has gathered in a folder, as
// Markdown. The prompts are divided by a hash of their names: one half is for trying settings out,
// the other one for the figures. ERRORS is a file for the errors of each recording, to compare two
// settings by.
#include "decoder_pool.h"
#include "recognizer.h"
#include "recorded_speech.h"
#include "translator.h"

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cwctype>
#include <exception>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <numeric>
#include <optional>
#include <random>
#include <stdexcept>
#include <string_view>

namespace {

using service::Recognizer;
using Samples = std::vector<std::int16_t>;
using Words = std::vector<std::string>;

constexpr double kSampleRate = service::kSampleRate;

struct Item {
    std::string set;
    std::string name;
    std::string file; // empty: only its text counts
    std::string text;
};

// What the recogniser made of some recordings, one number each.
struct Heard {
    std::vector<std::string> texts;
    double audioSeconds = 0;
    double processorSeconds = 0;
    std::vector<double> finalMs; // of work, from an utterance's last sample to its words
};

struct Rate {
    std::size_t errors = 0;
    std::size_t words = 0;
    double low = 0; // bounds of 95 %
    double high = 0;
};

// ---- Reading
// -------------------------------------------------------------------------------------

// Lines of set, name, file and text, with tabs between them.
std::vector<Item> ReadItems(const std::string& folder) {
    std::ifstream file(folder + "/items");
    std::vector<Item> items;
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        Item item;
        std::getline(fields, item.set, '\t');
        std::getline(fields, item.name, '\t');
        std::getline(fields, item.file, '\t');
        std::getline(fields, item.text);
        items.push_back(item);
    }
    if (items.empty()) {
        throw std::runtime_error("there are no recordings in " + folder);
    }
    return items;
}

Samples ReadSamples(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (bytes.empty()) {
        throw std::runtime_error("cannot read " + path);
    }
    Samples samples(bytes.size() / 2);
    std::copy_n(bytes.data(), samples.size() * 2, reinterpret_cast<char*>(samples.data()));
    return samples;
}

std::wstring Wide(const std::string& text) {
    std::wstring wide(text.size(), L'\0');
    const std::size_t length = std::mbstowcs(wide.data(), text.c_str(), wide.size());
    if (length == static_cast<std::size_t>(-1)) {
        throw std::runtime_error("not UTF-8: " + text);
    }
    wide.resize(length);
    for (wchar_t& character : wide) {
        character = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(character)));
    }
    return wide;
}

// In lower case, without marks other than apostrophes.
std::vector<std::wstring> WideWords(const std::string& text) {
    std::vector<std::wstring> words(1);
    for (const wchar_t character : Wide(text)) {
        if (std::iswalpha(static_cast<wint_t>(character)) != 0 ||
            (character == L'\'' && !words.back().empty())) {
            words.back() += character;
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    if (words.back().empty()) {
        words.pop_back();
    }
    return words;
}

Words PlainWords(const std::string& text) {
    Words words;
    for (const std::wstring& wide : WideWords(text)) {
        std::string word(wide.size() * MB_CUR_MAX, '\0');
        word.resize(std::wcstombs(word.data(), wide.c_str(), word.size()));
        words.push_back(word);
    }
    return words;
}

// The same on every computer.
bool ForTuning(const std::string& name) {
    std::uint32_t hash = 2'166'136'261U; // FNV-1a
    for (const char character : name) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 16'777'619U;
    }
    return (hash >> 16U) % 2 == 0;
}

// ---- Hearing
// -------------------------------------------------------------------------------------

double ProcessorSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Adds words as they come; in slices of 10 ms, so that what ends an utterance is timed by itself.
void HearSlices(Recognizer& recognizer, std::span<const std::int16_t> samples, std::string& text,
                Heard& heard) {
    constexpr std::size_t kSlice = service::kSampleRate / 100;
    while (!samples.empty()) {
        const auto slice = samples.first(std::min(samples.size(), kSlice));
        samples = samples.subspan(slice.size());
        const auto start = std::chrono::steady_clock::now();
        const Words utterances = recognizer.Hear(slice);
        const std::chrono::duration<double, std::milli> taken =
            std::chrono::steady_clock::now() - start;
        for (const std::string& words : utterances) {
            text += ' ' + words;
            heard.finalMs.push_back(taken.count());
        }
    }
}

// Silence behind each, as a client leaves it, so that its last utterance ends by itself.
Heard Hear(const std::vector<Item>& items, service::DecoderPool& pool, bool sessionEach) {
    const Samples silence(service::kSampleRate / 2);
    Heard heard;
    const double before = ProcessorSeconds();
    std::optional<Recognizer> recognizer;
    for (const Item& item : items) {
        if (sessionEach) {
            recognizer.reset(); // its decoder is the next one's
        }
        if (!recognizer) {
            recognizer.emplace(pool.Acquire());
        }
        const Samples samples = ReadSamples(item.file);
        std::string text;
        HearSlices(*recognizer, samples, text, heard);
        HearSlices(*recognizer, silence, text, heard);
        if (recognizer->InUtterance()) {
            text += ' ' + recognizer->Finish();
        }
        heard.texts.push_back(text);
        heard.audioSeconds += static_cast<double>(samples.size() + silence.size()) / kSampleRate;
    }
    heard.processorSeconds = ProcessorSeconds() - before;
    return heard;
}

std::size_t CountWords(const Heard& heard) {
    return std::accumulate(
        heard.texts.begin(), heard.texts.end(), std::size_t{0},
        [](std::size_t count, const std::string& text) { return count + SplitWords(text).size(); });
}

// ---- Judging
// -------------------------------------------------------------------------------------

// The bounds by drawing as many recordings again and again, with the same seed each time.
Rate ErrorRate(const std::vector<Item>& items, const Heard& heard, std::ostream& errors) {
    constexpr int kDraws = 2000;
    std::vector<std::pair<std::size_t, std::size_t>> each; // errors and words
    Rate rate;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const Words spoken = PlainWords(items[i].text);
        each.emplace_back(WordErrors(spoken, PlainWords(heard.texts[i])), spoken.size());
        rate.errors += each.back().first;
        rate.words += each.back().second;
        errors << items[i].set << '/' << items[i].name << '\t' << each.back().first << '\t'
               << each.back().second << '\t' << heard.texts[i] << '\n';
    }

    std::mt19937 random(1);
    std::vector<double> drawn;
    for (int draw = 0; draw < kDraws; ++draw) {
        std::size_t wrong = 0;
        std::size_t words = 0;
        for (std::size_t i = 0; i < each.size(); ++i) {
            const auto& [errorsOfOne, wordsOfOne] = each[random() % each.size()];
            wrong += errorsOfOne;
            words += wordsOfOne;
        }
        drawn.push_back(static_cast<double>(wrong) / static_cast<double>(words));
    }
    std::ranges::sort(drawn);
    rate.low = drawn[drawn.size() / 40];
    rate.high = drawn[drawn.size() - drawn.size() / 40];
    return rate;
}

template <typename Sequence>
std::map<Sequence, int> Pieces(const Sequence& all, std::size_t length) {
    std::map<Sequence, int> pieces;
    for (std::size_t at = 0; at + length <= all.size(); ++at) {
        const auto from = all.begin() + static_cast<std::ptrdiff_t>(at);
        ++pieces[Sequence(from, from + static_cast<std::ptrdiff_t>(length))];
    }
    return pieces;
}

// Pieces of one length in translation and reference, and those that are in both.
struct Matches {
    double inTranslation = 0;
    double inReference = 0;
    double common = 0;

    template <typename Sequence>
    void Add(const Sequence& translation, const Sequence& reference, std::size_t length) {
        const auto ours = Pieces(translation, length);
        const auto theirs = Pieces(reference, length);
        for (const auto& [piece, count] : ours) {
            inTranslation += count;
            const auto found = theirs.find(piece);
            common += found == theirs.end() ? 0 : std::min(count, found->second);
        }
        for (const auto& [piece, count] : theirs) {
            inReference += count;
        }
    }
};

// Of a whole set of sentences, in lower case: chrF2 over characters without blanks, and BLEU over
// words without marks.
class TranslationScore {
public:
    void Add(const std::string& translation, const std::string& reference) {
        const auto ourWords = WideWords(translation);
        const auto theirWords = WideWords(reference);
        for (std::size_t i = 0; i < words_.size(); ++i) {
            words_[i].Add(ourWords, theirWords, i + 1);
        }
        const auto joined = [](const std::vector<std::wstring>& words) {
            return std::accumulate(words.begin(), words.end(), std::wstring());
        };
        for (std::size_t i = 0; i < characters_.size(); ++i) {
            characters_[i].Add(joined(ourWords), joined(theirWords), i + 1);
        }
        ++sentences_;
    }

    double ChrF() const {
        constexpr double kRecallCounts = 2 * 2;
        double sum = 0;
        for (const Matches& matches : characters_) {
            const double precision = matches.common / std::max(1.0, matches.inTranslation);
            const double recall = matches.common / std::max(1.0, matches.inReference);
            const double both = kRecallCounts * precision + recall;
            sum += both > 0 ? (1 + kRecallCounts) * precision * recall / both : 0;
        }
        return 100 * sum / static_cast<double>(characters_.size());
    }

    double Bleu() const {
        double logarithms = 0;
        for (const Matches& matches : words_) {
            logarithms += std::log(matches.common / std::max(1.0, matches.inTranslation));
        }
        const double brevity =
            std::min(1.0, std::exp(1 - words_[0].inReference / words_[0].inTranslation));
        return 100 * brevity * std::exp(logarithms / static_cast<double>(words_.size()));
    }

    std::size_t Sentences() const { return sentences_; }

private:
    std::array<Matches, 4> words_;
    std::array<Matches, 6> characters_;
    std::size_t sentences_ = 0;
};

TranslationScore ScoreTranslation(const std::vector<Item>& english, const Words& texts,
                                  const std::vector<Item>& references, const char* code) {
    service::ChainPool chains;
    service::Translator translator({"en-US", code, code}, chains);
    TranslationScore score;
    for (std::size_t i = 0; i < english.size(); ++i) {
        const auto reference = std::ranges::find(references, english[i].name, &Item::name);
        if (reference == references.end()) {
            continue;
        }
        score.Add(translator.Translate(texts[i], std::chrono::seconds(10)).value_or(""),
                  reference->text);
    }
    return score;
}

// ---- Telling
// -------------------------------------------------------------------------------------

std::ostream& operator<<(std::ostream& out, const Rate& rate) {
    const double share = static_cast<double>(rate.errors) / static_cast<double>(rate.words);
    return out << 100 * share << " % (" << rate.errors << ") | " << 100 * rate.low << " to "
               << 100 * rate.high << " %";
}

double Median(std::vector<double> values) {
    std::ranges::sort(values);
    return values.empty() ? 0 : values[values.size() / 2];
}

class Report {
public:
    Report(std::vector<Item> items, const std::string& errors)
        : items_(std::move(items)), errors_(errors.empty() ? "/dev/null" : errors) {
        std::cout << std::fixed << std::setprecision(1);
    }

    void Speech() {
        std::cout << "| Recordings | Words | One session | 95 % | A session each | 95 % |\n"
                     "|---|---|---|---|---|---|\n";
        for (const char* set : {"prompts-en", "reader", "orders"}) {
            const std::vector<Item> items = Of(set);
            const Heard together = Hear(items, pool_, false);
            const Heard apart = Hear(items, pool_, true);
            const Rate rate = ErrorRate(items, together, errors_);
            std::cout << "| " << set << " | " << rate.words << " | " << rate << " | "
                      << ErrorRate(items, apart, errors_) << " |" << std::endl;
            if (items.front().set == "prompts-en") {
                prompts_ = together;
            }
        }
        std::cout << "\nWork: " << std::setprecision(3)
                  << prompts_.processorSeconds / prompts_.audioSeconds
                  << " of a core while somebody speaks; " << std::setprecision(1)
                  << Median(prompts_.finalMs)
                  << " ms (median) for the slice of 10 ms that ends an utterance.\n";
    }

    void OtherSound() {
        std::cout
            << "\n| Sound | Seconds | English words heard in it | Words a minute | Of a core |\n"
               "|---|---|---|---|---|\n";
        for (const char* set :
             {"music", "noise", "prompts-es", "prompts-fr", "prompts-it", "prompts-ru"}) {
            const Heard heard = Hear(Of(set), pool_, true);
            const auto words = static_cast<double>(CountWords(heard));
            std::cout << "| " << set << " | " << std::setprecision(0) << heard.audioSeconds << " | "
                      << words << " | " << std::setprecision(1) << 60 * words / heard.audioSeconds
                      << " | " << std::setprecision(3)
                      << heard.processorSeconds / heard.audioSeconds << " |" << std::setprecision(1)
                      << std::endl;
        }
    }

    void Translation() {
        std::cout << "\n| Into | Sentences | Of the text: chrF2, BLEU | Of what was heard |\n"
                     "|---|---|---|---|\n";
        const std::vector<Item> english = Of("prompts-en");
        Words texts;
        std::ranges::transform(english, std::back_inserter(texts), &Item::text);
        for (const char* code : {"es", "fr", "it"}) {
            const std::vector<Item> references = Of(std::string("prompts-") + code);
            const auto ofText = ScoreTranslation(english, texts, references, code);
            const auto ofHeard = ScoreTranslation(english, prompts_.texts, references, code);
            std::cout << "| " << code << " | " << ofText.Sentences() << " | " << ofText.ChrF()
                      << ", " << ofText.Bleu() << " | " << ofHeard.ChrF() << ", " << ofHeard.Bleu()
                      << " |" << std::endl;
        }
    }

private:
    std::vector<Item> Of(const std::string& set) const {
        std::vector<Item> items;
        std::ranges::copy_if(items_, std::back_inserter(items),
                             [&](const Item& item) { return item.set == set; });
        if (items.empty()) {
            throw std::runtime_error("there is nothing of " + set);
        }
        return items;
    }

    std::vector<Item> items_;
    std::ofstream errors_;
    service::DecoderPool pool_{1};
    Heard prompts_;
};

} // namespace

int main(int argc, char** argv) {
    const std::span<char*> arguments(argv, static_cast<std::size_t>(argc));
    const std::string_view half = argc > 2 ? arguments[2] : "figures";
    if (argc < 2 || argc > 4 || (half != "tuning" && half != "figures")) {
        std::cerr << "usage: kelvarin-measure-words FOLDER [tuning | figures] [ERRORS]\n";
        return 2;
    }
    try {
        std::setlocale(LC_CTYPE, "C.UTF-8"); // for letters of all languages
        std::vector<Item> items = ReadItems(arguments[1]);
        std::erase_if(items, [&](const Item& item) {
            return item.set.starts_with("prompts-") && ForTuning(item.name) != (half == "tuning");
        });
        Report report(std::move(items), argc > 3 ? arguments[3] : "");
        report.Speech();
        report.OtherSound();
        report.Translation();
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::cerr << "kelvarin-measure-words: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
