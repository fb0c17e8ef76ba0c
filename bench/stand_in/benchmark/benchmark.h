// Stands in for Google Benchmark where it is not packaged, which is in cross-builds for Windows:
// as much of it as the overlay's benchmarks use. Runs each case for about a second and prints the
// median of its iterations.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <vector>

namespace benchmark {

enum TimeUnit { kMicrosecond, kMillisecond };

class State {
public:
    using Clock = std::chrono::steady_clock;

    explicit State(long long argument) : argument_(argument) {}
    long long range(int /*index*/) const { return argument_; }

    struct Iterator {
        State* state;
        bool operator!=(const Iterator& /*end*/) const { return state->Continue(); }
        void operator++() { state->Lap(); }
        int operator*() const { return 0; }
    };
    Iterator begin() {
        started_ = lap_ = Clock::now();
        return {this};
    }
    Iterator end() { return {this}; }

    double MedianSeconds() {
        std::sort(laps_.begin(), laps_.end());
        return laps_.empty() ? 0 : laps_[laps_.size() / 2];
    }

private:
    bool Continue() const { return lap_ - started_ < std::chrono::seconds(1); }
    void Lap() {
        const auto now = Clock::now();
        laps_.push_back(std::chrono::duration<double>(now - lap_).count());
        lap_ = now;
    }

    long long argument_;
    Clock::time_point started_;
    Clock::time_point lap_;
    std::vector<double> laps_; // seconds of each iteration
};

class Case {
public:
    Case(const char* name, void (*body)(State&)) : name_(name), body_(body) {}
    Case* Arg(long long argument) {
        arguments_.push_back(argument);
        return this;
    }
    Case* Unit(TimeUnit unit) {
        unit_ = unit;
        return this;
    }
    void Run() const {
        for (const long long argument : arguments_) {
            State state(argument);
            body_(state);
            const bool ms = unit_ == kMillisecond;
            std::printf("%s/%lld  median %.3f %s\n", name_, argument,
                        state.MedianSeconds() * (ms ? 1e3 : 1e6), ms ? "ms" : "us");
            std::fflush(stdout);
        }
    }

private:
    const char* name_;
    void (*body_)(State&);
    std::vector<long long> arguments_;
    TimeUnit unit_ = kMicrosecond;
};

inline std::deque<Case>& Cases() {
    static std::deque<Case> cases; // whose elements stay where they are
    return cases;
}
inline Case* Register(const char* name, void (*body)(State&)) {
    return &Cases().emplace_back(name, body);
}

template <typename T>
void DoNotOptimize(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

} // namespace benchmark

#define BENCHMARK(body) static auto* const registered_##body = benchmark::Register(#body, body)
#define BENCHMARK_MAIN()                                                                           \
    int main() {                                                                                   \
        for (const auto& benchmarkCase : benchmark::Cases()) {                                     \
            benchmarkCase.Run();                                                                   \
        }                                                                                          \
    }                                                                                              \
    static_assert(true)
