// The main job without a window: captures sound, has it translated and prints each result as it
// settles. It does what the overlay's worker does, and runs until its standard input ends.
#include "audio_capture.h"
#include "azure_translator.h"
#include "languages.h"
#include "wide_text.h"

#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <thread>

namespace {

constexpr const char* kUsage =
    "Usage: kelvarin-live --key KEY [OPTION VALUE ...]\n"
    "Captures sound, prints the recognised words with their translation, and ends some seconds\n"
    "after its standard input does.\n"
    "  --mode loopback|mic|mixed   what to listen to (loopback)\n"
    "  --lang-a LOCALE             first language (en-US)\n"
    "  --lang-b LOCALE             second language (es-ES)\n"
    "  --mic ID, --loopback ID     devices (the system's defaults)\n"
    "  --words FILE                also write the recognised words there\n"
    "  --linger SECONDS            how long to wait for late results (3)\n";

using Options = std::map<std::string, std::string>;

bool ReadOptions(int count, char** arguments, Options& options) {
    for (int i = 1; i < count; i += 2) {
        const std::string name = arguments[i];
        if (options.count(name) == 0 || i + 1 == count) {
            return false;
        }
        options[name] = arguments[i + 1];
    }
    return !options["--key"].empty();
}

// Prints results as they settle. Called on the exchange thread; Words is called behind its end.
class Printer {
public:
    void Result(const TranslationResult& result) {
        if (!result.isFinal) {
            ++partials_;
            return;
        }
        const std::string original = WideToUtf8(result.original);
        std::printf("  %s\n      %s\n", original.c_str(), WideToUtf8(result.translated).c_str());
        std::fflush(stdout);
        words_ += original + " ";
        ++finals_;
    }
    void Error(const WideString& text) {
        std::printf("  error: %s\n", WideToUtf8(text).c_str());
        std::fflush(stdout);
        failed_ = true;
    }

    const std::string& Words() const { return words_; }
    int Finals() const { return finals_; }
    int Partials() const { return partials_; }
    bool Failed() const { return failed_; }

private:
    std::string words_;
    std::atomic<int> finals_{0};
    std::atomic<int> partials_{0};
    std::atomic<bool> failed_{false};
};

bool StartCapture(AudioCapture& capture, const std::string& mode, const WideString& mic,
                  const WideString& loopback, PcmCallback callback) {
    if (mode == "mic") {
        return capture.StartMic(mic, std::move(callback));
    }
    if (mode == "mixed") {
        return capture.StartMixed(mic, loopback, std::move(callback));
    }
    return capture.StartLoopback(loopback, std::move(callback));
}

int Fail(const std::string& what) {
    std::printf("  failed: %s\n", what.c_str());
    return 1;
}

} // namespace

int main(int argumentCount, char** arguments) {
    Options options = {{"--key", ""},         {"--mode", "loopback"}, {"--lang-a", "en-US"},
                       {"--lang-b", "es-ES"}, {"--mic", ""},          {"--loopback", ""},
                       {"--words", ""},       {"--linger", "3"}};
    if (!ReadOptions(argumentCount, arguments, options)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    Printer printer;
    AzureTranslator translator;
    AudioCapture capture;
    const WideString langA = Utf8ToWide(options["--lang-a"]);
    const WideString langB = Utf8ToWide(options["--lang-b"]);
    translator.Configure(
        Utf8ToWide(options["--key"]), langA, ResolveTargetCode(langA), langB,
        ResolveTargetCode(langB),
        [&printer](const TranslationResult& result) { printer.Result(result); },
        [&printer](const WideString& text) { printer.Error(text); });
    if (!translator.Start()) {
        WideString reason = TEXT("Failed to connect to server");
        translator.CheckKey(reason);
        return Fail(WideToUtf8(reason));
    }
    std::atomic<std::uint64_t> heardBytes{0};
    if (!StartCapture(capture, options["--mode"], Utf8ToWide(options["--mic"]),
                      Utf8ToWide(options["--loopback"]),
                      [&](const std::uint8_t* data, std::uint32_t bytes) {
                          heardBytes += bytes;
                          translator.PushAudio(data, bytes);
                      })) {
        return Fail("no sound to capture");
    }
    const auto began = std::chrono::steady_clock::now();
    const std::clock_t cpuBegan = std::clock();
    std::printf("  listening\n");
    std::fflush(stdout);
    for (std::string line; !printer.Failed() && std::getline(std::cin, line);) {
    }
    std::this_thread::sleep_for(std::chrono::seconds(std::stoi(options["--linger"])));

    const double cpuSeconds = static_cast<double>(std::clock() - cpuBegan) / CLOCKS_PER_SEC;
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - began;
    capture.Stop();
    translator.Stop();
    if (!options["--words"].empty()) {
        std::ofstream(options["--words"]) << printer.Words() << "\n";
    }
    const double heardSeconds = static_cast<double>(heardBytes) / 32000.0;
    std::printf(
        "  %d captions, %d partial results, %.1f s of sound (%.3f of the time), %.2f %% of a "
        "core in %.1f s\n",
        printer.Finals(), printer.Partials(), heardSeconds, heardSeconds / wall.count(),
        100.0 * cpuSeconds / wall.count(), wall.count());
    CoUninitialize();
    return printer.Failed() ? 1 : 0;
}
