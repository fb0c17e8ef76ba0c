// What the user waits for: the time from a result of the service to its picture in the window, and
// the measuring of texts within it.
#include "overlay_probe.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

constexpr const char* kSaid =
    "He was not an ill disposed young man, unless to be rather cold hearted";
constexpr const char* kMeant =
    "No era un joven mal dispuesto, a menos que ser bastante frío de corazón";

// A partial result that grows the newest caption, from the posted message to the pushed picture.
void ResultToPicture(benchmark::State& state) {
    OverlayProbe overlay;
    overlay.Send(kMsgStarted);
    overlay.Fill(static_cast<std::size_t>(state.range(0)), Utf8ToWide(kSaid), Utf8ToWide(kMeant));
    overlay.Result("a first one measures all", "that came before", false);
    int word = 0;
    for ([[maybe_unused]] auto _ : state) {
        const std::string grown = kSaid + (" " + std::to_string(++word));
        overlay.Result(grown, kMeant, false);
    }
}
BENCHMARK(ResultToPicture)
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(5000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);

// A text of so many characters that has not been measured before.
void MeasureNewText(benchmark::State& state) {
    const GdiplusSession session;
    const Canvas canvas(380, 420);
    const FontOwner font = MakeFont(TEXT("Microsoft YaHei UI"), 10.5F, Gdiplus::FontStyleRegular);
    WideString text;
    while (text.size() < static_cast<std::size_t>(state.range(0))) {
        text += TEXT("some words of speech ");
    }
    int number = 0;
    for ([[maybe_unused]] auto _ : state) {
        const WideString changed = text + Utf8ToWide(std::to_string(++number));
        benchmark::DoNotOptimize(
            MeasureTextHeight(canvas.Graphics(), changed, {10, 0, 352, 2000}, font.get()));
    }
}
BENCHMARK(MeasureNewText)->Arg(20)->Arg(80)->Arg(400)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
