// All sessions that are under way: who may start one, whose each is, what its audio costs, and
// when an abandoned one ends. Knows nothing of HTTP or JSON.
#pragma once

#include "accounts.h"
#include "decoder_pool.h"
#include "refusal.h"
#include "session.h"

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
// caller's thread; those of one session take turns.
class Sessions {
public:
    // Both rooms outlive this one. A session that nobody has spoken to for `idleLimit` is ended.
    Sessions(Accounts& accounts, DecoderPool& decoders, std::chrono::milliseconds idleLimit);
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;
    ~Sessions() = default;

    StartAnswer Start(const std::string& key, const Conversation& conversation);
    ExchangeAnswer Exchange(const std::string& id, const std::string& key,
                            std::span<const std::int16_t> samples);
    Refusal Stop(const std::string& id, const std::string& key);

private:
    struct Live {
        Live(std::string owner, DecoderLease decoder, const Conversation& conversation)
            : key(std::move(owner)), session(std::move(decoder), conversation) {}

        const std::string key;
        Session::Time lastUse; // guarded by Sessions::mutex_
        std::mutex busy;       // guards what follows; held for a whole exchange, so never taken
                               // under mutex_
        Session session;
        std::size_t unbilledSamples = 0; // less than a millisecond
    };
    using LiveMap = std::map<std::string, std::shared_ptr<Live>>;

    std::shared_ptr<Live> Find(const std::string& id, const std::string& key);
    bool End(const std::string& id, const std::string& key, const char* why);
    void Bill(Live& live, std::size_t samples);
    void EndIdleSessions(const std::stop_token& stop);

    Accounts& accounts_;
    DecoderPool& decoders_;
    const std::chrono::milliseconds idleLimit_;

    std::mutex mutex_; // guards live_; never held while a session is made, used or destroyed
    std::condition_variable_any wake_;
    LiveMap live_;
    std::jthread reaper_; // last: it ends before what it uses
};

} // namespace service
