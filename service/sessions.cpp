#include "sessions.h"

#include "log.h"
#include "random_token.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace service {
namespace {

using namespace std::chrono_literals;

// Audio may come faster than it is spoken, to catch up after a hiccup of the network: half as fast
// again, and as much as a client sends at once besides.
constexpr double kCatchUp = 1.5;
constexpr double kSliceSeconds = 1.024;

// For a decoder that an ended session has still in use.
constexpr auto kDecoderWait = 1s;

// Enough of a session's id to tell sessions apart in the log, not enough to speak for one.
std::string ShortName(const std::string& id) {
    return "session " + id.substr(0, 8);
}

} // namespace

struct Sessions::Live {
    Live(KeyHash owner, DecoderLease decoder, const Conversation& conversation, ChainPool& chains)
        : key(std::move(owner)), session(std::move(decoder), conversation, chains) {}

    const KeyHash key;
    std::atomic<bool> busy = false; // taken by a turn
    Session session;                // the turn's

    // Guarded by Sessions::mutex_.
    Clock::time_point lastRequest = Clock::now();
    Clock::time_point lastAudio = Clock::now();
    Clock::time_point measured = Clock::now(); // when `secondsAhead` was true
    double secondsAhead = 0; // audio brought beyond what time and catching up allow
};

Sessions::Turn::Turn(std::string id, std::shared_ptr<Live> live)
    : id_(std::move(id)), live_(std::move(live)), refusal_(Refusal::None) {}

// What was held goes with the other one.
Sessions::Turn& Sessions::Turn::operator=(Turn&& other) noexcept {
    std::swap(id_, other.id_);
    std::swap(live_, other.live_);
    std::swap(refusal_, other.refusal_);
    std::swap(taken_, other.taken_);
    std::swap(ahead_, other.ahead_);
    return *this;
}

Sessions::Turn::~Turn() {
    if (live_) {
        live_->busy = false;
    }
}

Sessions::Sessions(Ledger& ledger, DecoderPool& decoders, ChainPool& chains,
                   const SessionLimits& limits, std::string instance)
    : ledger_(ledger), decoders_(decoders), chains_(chains), limits_(limits),
      instance_(std::move(instance)),
      reaper_([this](const std::stop_token& stop) { EndIdleSessions(stop); }) {}

Sessions::~Sessions() = default;

StartAnswer Sessions::Start(const KeyHash& key, const Conversation& conversation) {
    const std::optional<Account> account = ledger_.Find(key);
    for (const Refusal refusal : {RefusalOf(account), WhyClosed()}) {
        if (refusal != Refusal::None) {
            return {refusal, {}};
        }
    }
    const std::lock_guard starting(starting_);
    const bool endedOne = EndSilentOf(key, account->sessions);
    DecoderLease decoder = decoders_.Acquire(endedOne ? kDecoderWait : 0s);
    if (!decoder) {
        return {Refusal::NoDecoderFree, {}};
    }
    auto live = std::make_shared<Live>(key, std::move(decoder), conversation, chains_);
    std::string id = RandomToken() + (instance_.empty() ? "" : ".") + instance_;
    ++started_;
    {
        const std::lock_guard lock(mutex_);
        live_.emplace(id, std::move(live));
    }
    Log(ShortName(id) + " started, " + conversation.spokenLocale + " to " +
        conversation.targetCode + (account->name.empty() ? "" : ", for ") + account->name);
    return {Refusal::None, std::move(id)};
}

Refusal Sessions::WhyClosed() const {
    if (closed_) {
        return Refusal::Ending;
    }
    if (!ledger_.CanStore()) {
        return Refusal::CannotStore;
    }
    return load_.IsTooHigh(Clock::now()) ? Refusal::Overloaded : Refusal::None;
}

// Makes room for one more of the key's sessions.
bool Sessions::EndSilentOf(const KeyHash& key, std::int64_t allowed) {
    bool endedOne = false;
    while (true) {
        std::string silent;
        {
            const std::lock_guard lock(mutex_);
            std::int64_t count = 0;
            Clock::time_point earliest = Clock::time_point::max();
            for (const auto& [id, live] : live_) {
                count += live->key == key ? 1 : 0;
                if (live->key == key && live->lastAudio < earliest) {
                    earliest = live->lastAudio;
                    silent = id;
                }
            }
            if (count < allowed) {
                return endedOne;
            }
        }
        endedOne = End(silent, key, "ended for a newer one of its key") || endedOne;
    }
}

Sessions::Turn Sessions::TakeTurn(const std::string& id, const KeyHash& key) {
    const Refusal refusal = RefusalOf(ledger_.Find(key));
    if (refusal != Refusal::None) {
        // The client says nothing more for a session after this answer.
        End(id, key, "ended with its key refused");
        return Turn(refusal);
    }
    const std::lock_guard lock(mutex_);
    const auto found = live_.find(id);
    if (found == live_.end() || found->second->key != key) {
        return Turn(Refusal::SessionNotFound);
    }
    found->second->lastRequest = Clock::now();
    if (found->second->busy.exchange(true)) {
        return Turn(Refusal::SessionBusy);
    }
    return Turn(id, found->second);
}

bool Sessions::GoesAheadOfTime(Turn& turn, std::size_t samples) {
    const std::lock_guard lock(mutex_);
    Live& live = *turn.live_;
    const auto now = Clock::now();
    const std::chrono::duration<double> passed = now - std::exchange(live.measured, now);
    live.secondsAhead = std::max(0.0, live.secondsAhead - kCatchUp * passed.count()) +
                        static_cast<double>(samples) / kSampleRate;
    turn.ahead_ = live.secondsAhead > kSliceSeconds;
    return turn.ahead_;
}

ExchangeAnswer Sessions::Exchange(const Turn& turn, std::span<const std::int16_t> samples) {
    Live& live = *turn.live_;
    const std::size_t granted = ledger_.Take(live.key, samples.size());
    if (granted == 0 && !samples.empty()) {
        End(turn.id_, live.key, "ended with its quota");
        return {Refusal::QuotaExceeded, {}, {}};
    }
    ExchangeAnswer answer{Refusal::None, live.session.Languages(), {}};
    try {
        answer.captions = live.session.Exchange(samples.first(granted), Clock::now());
    } catch (...) {
        ledger_.GiveBack(live.key, granted);
        throw;
    }
    decodedSamples_ += granted;
    if (granted > 0) {
        const std::lock_guard lock(mutex_);
        live.lastRequest = live.lastAudio = Clock::now();
    }
    if (granted > 0 && !turn.ahead_) {
        const std::chrono::duration<double> audio(static_cast<double>(granted) / kSampleRate);
        const auto now = Clock::now();
        load_.Note(std::chrono::duration_cast<Load::Duration>(audio), now - turn.taken_, now);
    }
    // The next exchange will be refused: what was said so far is still the user's.
    if (ending_ || granted < samples.size()) {
        std::ranges::move(live.session.Finish(), std::back_inserter(answer.captions));
    }
    if (ending_) {
        End(turn.id_, live.key, "ended with the service");
    }
    return answer;
}

Refusal Sessions::Stop(const std::string& id, const KeyHash& key) {
    return End(id, key, "stopped") ? Refusal::None : Refusal::SessionNotFound;
}

void Sessions::EndAll(std::chrono::milliseconds patience) {
    closed_ = ending_ = true;
    std::unique_lock lock(mutex_);
    wake_.wait_for(lock, patience, [this] { return live_.empty(); });
}

SessionFigures Sessions::Figures() const {
    SessionFigures figures;
    {
        const std::lock_guard lock(mutex_);
        figures.sessions = live_.size();
    }
    figures.started = started_;
    figures.decodedSeconds = static_cast<double>(decodedSamples_) / kSampleRate;
    figures.longestSeconds = std::chrono::duration<double>(load_.Longest(Clock::now())).count();
    figures.canStore = ledger_.CanStore();
    return figures;
}

bool Sessions::End(const std::string& id, const KeyHash& key, const char* why) {
    LiveMap::node_type ended; // destroyed after the lock is released
    {
        const std::lock_guard lock(mutex_);
        const auto found = live_.find(id);
        if (found == live_.end() || found->second->key != key) {
            return false;
        }
        ended = live_.extract(found);
    }
    wake_.notify_all();
    Log(ShortName(id) + " " + why);
    ledger_.StoreSoon();
    return true;
}

void Sessions::EndIdleSessions(const std::stop_token& stop) {
    struct Idle {
        std::string id;
        KeyHash key;
        const char* why;
    };
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        wake_.wait_for(lock, stop, limits_.withoutRequest / 4, [] { return false; });
        const auto now = Clock::now();
        std::vector<Idle> idle;
        for (const auto& [id, live] : live_) {
            if (live->busy) {
                continue; // it may have to wait behind others
            }
            if (now - live->lastRequest > limits_.withoutRequest) {
                idle.push_back({id, live->key, "ended, its client has gone"});
            } else if (now - live->lastAudio > limits_.withoutAudio) {
                idle.push_back({id, live->key, "ended, there was no audio for too long"});
            }
        }
        lock.unlock();
        for (const Idle& session : idle) {
            End(session.id, session.key, session.why);
        }
        lock.lock();
    }
}

} // namespace service
