// All sessions that are under way: who may start one, whose each is, what its audio costs, and
// when an abandoned one ends. Knows nothing of HTTP or JSON.
#pragma once

#include "decoder_pool.h"
#include "ledger.h"
#include "load.h"
#include "refusal.h"
#include "session.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace service {

struct SessionLimits {
    std::chrono::milliseconds withoutRequest = std::chrono::seconds(15);
    std::chrono::milliseconds withoutAudio = std::chrono::minutes(5);
};

struct SessionFigures {
    std::size_t sessions = 0;  // under way
    std::uint64_t started = 0; // in all
    double decodedSeconds = 0; // of audio, in all
    double longestSeconds = 0; // from a turn to its answer, of late
    bool canStore = true;
};

struct StartAnswer {
    Refusal refusal = Refusal::None;
    std::string sessionId;
};

struct ExchangeAnswer {
    Refusal refusal = Refusal::None;
    Conversation languages;
    std::vector<Caption> captions;
};

// Any thread calls any operation. Exchanges of different sessions run side by side, each on its
// caller's thread.
class Sessions {
private:
    struct Live;

public:
    // The right to a session's next exchange, held from the request to its answer.
    class Turn {
    public:
        Turn() = default;
        explicit Turn(Refusal refusal) : refusal_(refusal) {}
        Turn(std::string id, std::shared_ptr<Live> live);
        Turn(Turn&&) = default;
        Turn& operator=(Turn&& other) noexcept;
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn();

        Refusal Refused() const { return refusal_; } // `None` for one that can be used

    private:
        friend class Sessions;
        std::string id_;
        std::shared_ptr<Live> live_;
        Refusal refusal_ = Refusal::SessionNotFound;
        std::chrono::steady_clock::time_point taken_ = std::chrono::steady_clock::now();
        bool ahead_ = false; // waits behind others, which is no sign of load
    };

    // The rooms outlive this one. The name of this service among several that serve together, if it
    // has one, ends the sessions' ids, behind a full stop.
    Sessions(Ledger& ledger, DecoderPool& decoders, ChainPool& chains,
             const SessionLimits& limits = {}, std::string instance = {});
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;
    ~Sessions();

    // A key that has its number of sessions loses the one that has brought no audio for longest.
    StartAnswer Start(const KeyHash& key, const Conversation& conversation);

    // Why nobody is let in at the moment, whatever the key; `None` when somebody may be.
    Refusal WhyClosed() const;

    Turn TakeTurn(const std::string& id, const KeyHash& key);

    // With these samples the session has brought more audio than time has passed, so that others go
    // first. To be asked once for each turn.
    bool GoesAheadOfTime(Turn& turn, std::size_t samples);

    // A turn that can be used. Of more audio than the key has left, the rest is not heard, and what
    // was said so far comes as a final.
    ExchangeAnswer Exchange(const Turn& turn, std::span<const std::int16_t> samples);

    Refusal Stop(const std::string& id, const KeyHash& key);

    // From now on nobody starts; sessions go on.
    void Close() { closed_ = true; }

    // From now on nobody starts, and each session ends with its next exchange, which hands out the
    // sentence in hand. Returns when all have ended, or after `patience`.
    void EndAll(std::chrono::milliseconds patience);

    SessionFigures Figures() const;

private:
    using Clock = std::chrono::steady_clock;
    using LiveMap = std::map<std::string, std::shared_ptr<Live>>;

    bool EndSilentOf(const KeyHash& key, std::int64_t allowed);
    bool End(const std::string& id, const KeyHash& key, const char* why);
    void EndIdleSessions(const std::stop_token& stop);

    Ledger& ledger_;
    DecoderPool& decoders_;
    ChainPool& chains_;
    const SessionLimits limits_;
    const std::string instance_;
    Load load_;

    std::mutex starting_;      // held for a whole start, so that no two count the same sessions
    mutable std::mutex mutex_; // guards live_ and the times in it; never held while a session is
                               // made, used or destroyed
    std::condition_variable_any wake_;
    LiveMap live_;
    std::atomic<bool> closed_ = false;
    std::atomic<bool> ending_ = false; // and closed
    std::atomic<std::uint64_t> started_ = 0;
    std::atomic<std::uint64_t> decodedSamples_ = 0;
    std::jthread reaper_; // last: it ends before what it uses
};

} // namespace service
