#include "sessions.h"

#include "log.h"
#include "random_token.h"

#include <utility>

namespace service {
namespace {

using Clock = std::chrono::steady_clock;

// Enough of a session's id to tell sessions apart in the log, not enough to speak for one.
std::string ShortName(const std::string& id) {
    return "session " + id.substr(0, 8);
}

} // namespace

Sessions::Sessions(Accounts& accounts, DecoderPool& decoders, std::chrono::milliseconds idleLimit)
    : accounts_(accounts), decoders_(decoders), idleLimit_(idleLimit),
      reaper_([this](const std::stop_token& stop) { EndIdleSessions(stop); }) {}

StartAnswer Sessions::Start(const std::string& key, const Conversation& conversation) {
    const Refusal refusal = RefusalOf(accounts_.Find(HashOf(key)));
    if (refusal != Refusal::None) {
        return {refusal, {}};
    }
    DecoderLease decoder = decoders_.Acquire();
    if (!decoder) {
        return {Refusal::NoDecoderFree, {}};
    }

    auto live = std::make_shared<Live>(key, std::move(decoder), conversation);
    live->lastUse = Clock::now();
    std::string id = RandomToken();
    {
        const std::lock_guard lock(mutex_);
        live_.emplace(id, std::move(live));
    }
    Log(ShortName(id) + " started, " + conversation.spokenLocale + " to " +
        conversation.targetCode);
    return {Refusal::None, std::move(id)};
}

ExchangeAnswer Sessions::Exchange(const std::string& id, const std::string& key,
                                  std::span<const std::int16_t> samples) {
    const Refusal refusal = RefusalOf(accounts_.Find(HashOf(key)));
    if (refusal != Refusal::None) {
        // The client says nothing more for a session after this answer.
        End(id, key, "ended with its key refused");
        return {refusal, {}, {}};
    }
    const std::shared_ptr<Live> live = Find(id, key);
    if (!live) {
        return {Refusal::SessionNotFound, {}, {}};
    }

    const std::lock_guard lock(live->busy);
    ExchangeAnswer answer{Refusal::None, live->session.Languages(), {}};
    answer.captions = live->session.Exchange(samples, Clock::now());
    if (samples.empty()) {
        return answer;
    }
    Bill(*live, samples.size());
    // The next exchange will be refused: what was said so far is still the user's.
    if (RefusalOf(accounts_.Find(HashOf(key))) == Refusal::QuotaExceeded) {
        std::ranges::move(live->session.Finish(), std::back_inserter(answer.captions));
    }
    return answer;
}

Refusal Sessions::Stop(const std::string& id, const std::string& key) {
    return End(id, key, "stopped") ? Refusal::None : Refusal::SessionNotFound;
}

std::shared_ptr<Sessions::Live> Sessions::Find(const std::string& id, const std::string& key) {
    const std::lock_guard lock(mutex_);
    const auto found = live_.find(id);
    if (found == live_.end() || found->second->key != key) {
        return nullptr;
    }
    found->second->lastUse = Clock::now();
    return found->second;
}

bool Sessions::End(const std::string& id, const std::string& key, const char* why) {
    LiveMap::node_type ended; // destroyed after the lock is released
    {
        const std::lock_guard lock(mutex_);
        const auto found = live_.find(id);
        if (found == live_.end() || found->second->key != key) {
            return false;
        }
        ended = live_.extract(found);
    }
    Log(ShortName(id) + " " + why);
    return true;
}

void Sessions::Bill(Live& live, std::size_t samples) {
    constexpr std::size_t kSamplesPerMs = kSampleRate / 1000;
    live.unbilledSamples += samples;
    const std::size_t ms = live.unbilledSamples / kSamplesPerMs;
    live.unbilledSamples %= kSamplesPerMs;
    const Usage usage{HashOf(live.key), static_cast<std::int64_t>(ms)};
    accounts_.Charge({&usage, 1});
}

void Sessions::EndIdleSessions(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        wake_.wait_for(lock, stop, idleLimit_ / 4, [] { return false; });

        LiveMap idle;
        const auto oldest = Clock::now() - idleLimit_;
        for (auto next = live_.begin(); next != live_.end();) {
            const auto session = next++;
            if (session->second->lastUse < oldest) {
                idle.insert(live_.extract(session));
            }
        }
        lock.unlock();
        for (const auto& [id, session] : idle) {
            Log(ShortName(id) + " ended, its client has gone");
        }
        idle.clear();
        lock.lock();
    }
}

} // namespace service
