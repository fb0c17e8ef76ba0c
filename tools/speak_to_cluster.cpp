// Speakers who do not give up: each speaks for some seconds, is silent for as many, and starts
// again when its session has ended. Prints a line for each thing that somebody notices, and at the
// end one for each speaker: what it has to be billed.
//
//   speak-to-cluster URL AUTHORITY KEYS SECONDS     until then, or until SIGTERM
//
// KEYS is a file with a key in each line; one that stands there twice is used by two speakers.
#include "speaking_client.h"

#include <pthread.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <stop_token>
#include <thread>

namespace service {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kTurn = 4s; // of speech, and of silence behind it
constexpr auto kSilentStep = 110ms;
constexpr auto kSlow = 2s;
constexpr auto kAnotherTry = 200ms;
constexpr std::int64_t kSamplesPerMs = kRate / 1000;

class Speaker {
public:
    Speaker(const std::string& url, const std::string& authority, std::string key, int number,
            std::span<const std::int16_t> speech)
        : client_(ConnectTo(url, authority)), key_(std::move(key)), number_(number),
          speech_(speech) {}

    void SpeakUntil(const std::stop_token& stop, Clock::time_point end) {
        const auto wantsMore = [&] { return !stop.stop_requested() && Clock::now() < end; };
        const auto begun = Clock::now() - number_ * 700ms; // they do not all speak at once
        auto heard = Clock::now();                         // up to here what it says has been sent
        while (wantsMore()) {
            if (id_.empty()) {
                Start();
                heard = Clock::now();
                continue;
            }
            const bool speaks = (Clock::now() - begun) / kTurn % 2 == 0;
            const auto step = std::chrono::duration_cast<std::chrono::milliseconds>(
                                  std::min<Clock::duration>(Clock::now() - heard, 1s)) /
                              10 * 10;
            if (!speaks || step == 0ms) {
                std::this_thread::sleep_for(speaks ? 1ms : kSilentStep);
                heard = speaks ? heard : Clock::now();
                if (!speaks) {
                    Send({});
                }
                continue;
            }
            heard += step;
            const std::size_t count = static_cast<std::size_t>(step.count()) * kRate / 1000;
            position_ = position_ + count <= speech_.size() ? position_ : 0;
            Send(speech_.subspan(std::exchange(position_, position_ + count), count));
        }
        if (!id_.empty()) {
            StopSession(*client_, key_, id_);
        }
    }

    void Report() const {
        std::printf("speaker %d key %s answered %lld unanswered %lld expired %d captions %zu "
                    "longest %lld\n",
                    number_, key_.c_str(), static_cast<long long>(answered_ / kSamplesPerMs),
                    static_cast<long long>(unanswered_ / kSamplesPerMs), expired_, captions_,
                    static_cast<long long>(longest_ / 1ms));
    }

private:
    void Start() {
        id_ = StartSession(*client_, key_);
        if (id_.empty()) {
            std::this_thread::sleep_for(kAnotherTry); // as somebody who presses the button again
            return;
        }
        Notice("on " + id_.substr(std::min(id_.find('.') + 1, id_.size())));
    }

    void Send(std::span<const std::int16_t> samples) {
        const auto asked = Clock::now();
        const auto answer = Exchange(*client_, key_, id_, samples);
        const Clock::duration took = Clock::now() - asked;
        longest_ = std::max(longest_, took);
        if (took > kSlow) {
            Notice("waited " + std::to_string(took / 1ms) + " ms");
        }
        const auto count = static_cast<std::int64_t>(samples.size());
        if (answer && answer->status == 200) {
            answered_ += count;
            captions_ += CaptionsIn(answer->body);
        } else if (answer && answer->status == 404) {
            ++expired_;
            id_.clear();
            Notice("expired");
        } else {
            unanswered_ += count;
            Notice("failed " + (answer ? std::to_string(answer->status) + " " + answer->body
                                       : to_string(answer.error())));
        }
    }

    void Notice(const std::string& what) const {
        static std::mutex mutex;
        const std::lock_guard lock(mutex);
        std::cout << "notice: speaker " << number_ << ' ' << what << std::endl;
    }

    std::unique_ptr<httplib::Client> client_;
    const std::string key_;
    const int number_;
    const std::span<const std::int16_t> speech_;
    std::size_t position_ = 0;
    std::string id_;            // empty: no session
    std::int64_t answered_ = 0; // samples
    std::int64_t unanswered_ = 0;
    int expired_ = 0;
    std::size_t captions_ = 0;
    Clock::duration longest_{};
};

int Run(const std::vector<std::string>& words) {
    if (words.size() != 5) {
        throw std::runtime_error("URL AUTHORITY KEYS SECONDS");
    }
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    const std::vector<std::int16_t> speech = AllSpeech();
    std::vector<std::unique_ptr<Speaker>> speakers;
    std::ifstream keys(words[3]);
    for (std::string key; std::getline(keys, key);) {
        speakers.push_back(std::make_unique<Speaker>(words[1], words[2], key,
                                                     static_cast<int>(speakers.size()), speech));
    }
    const int seconds = std::stoi(words[4]);
    {
        std::vector<std::jthread> threads;
        for (const auto& speaker : speakers) {
            threads.emplace_back([&speaker, seconds](const std::stop_token& stop) {
                speaker->SpeakUntil(stop, Clock::now() + std::chrono::seconds(seconds));
            });
        }
        const timespec limit{seconds, 0};
        sigtimedwait(&signals, nullptr, &limit);
        for (std::jthread& thread : threads) {
            thread.request_stop();
        }
    }
    for (const auto& speaker : speakers) {
        speaker->Report();
    }
    return EXIT_SUCCESS;
}

} // namespace
} // namespace service

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return service::Run({argv, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "speak-to-cluster: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
