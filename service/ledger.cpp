#include "ledger.h"

#include "log.h"

#include <algorithm>
#include <exception>
#include <string>

namespace service {
namespace {

constexpr std::int64_t kSamplesPerMs = 16;
constexpr int kFailuresThatCount = 2; // one alone is another process that is writing just now
constexpr auto kForgetAfter = std::chrono::minutes(1);

} // namespace

Ledger::Ledger(Accounts& accounts, std::chrono::milliseconds storeEvery)
    : accounts_(accounts), storeEvery_(storeEvery),
      storing_([this](const std::stop_token& stop) { KeepStoring(stop); }) {}

Ledger::~Ledger() {
    storing_.request_stop();
    storing_.join();
    Store();
    for (const auto& [key, entry] : entries_) {
        if (entry.pendingSamples >= kSamplesPerMs) {
            Log("error: the last of what was used could not be stored and is lost");
            break;
        }
    }
}

std::optional<Account> Ledger::Find(const KeyHash& key) {
    Refresh(key);
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(key);
    return found == entries_.end() ? std::nullopt : Standing(found->second);
}

std::optional<Account> Ledger::Standing(const Entry& entry) {
    std::optional<Account> account = entry.stored;
    if (account) {
        account->usedMs += entry.storingMs + entry.pendingSamples / kSamplesPerMs;
    }
    return account;
}

// What is read while usage is being stored may hold that usage or not: it is left alone then, and
// read again a moment later.
void Ledger::Refresh(const KeyHash& key) {
    std::uint64_t changes = 0;
    bool known = false;
    {
        const std::lock_guard lock(mutex_);
        const auto found = entries_.find(key);
        known = found != entries_.end();
        if (known && found->second.storingMs > 0) {
            return;
        }
        changes = known ? found->second.changes : 0;
    }

    std::optional<Account> read;
    try {
        read = accounts_.Find(key);
    } catch (const std::exception&) {
        if (!known) {
            throw;
        }
        return;
    }
    if (!known && !read) {
        return; // strangers' guesses are not kept
    }

    const std::lock_guard lock(mutex_);
    Entry& entry = entries_[key];
    entry.lastUse = Clock::now();
    if (entry.changes == changes && entry.storingMs == 0) {
        entry.stored = std::move(read);
    }
}

std::size_t Ledger::Take(const KeyHash& key, std::size_t samples) {
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(key);
    const std::optional<Account> account =
        found == entries_.end() ? std::nullopt : Standing(found->second);
    if (!account) {
        return 0;
    }
    // To the millisecond; what is less than one stays pending.
    const auto left = static_cast<std::size_t>(account->RemainingMs() * kSamplesPerMs);
    const std::size_t taken = account->unlimited ? samples : std::min(samples, left);
    found->second.pendingSamples += static_cast<std::int64_t>(taken);
    found->second.lastUse = Clock::now();
    return taken;
}

void Ledger::GiveBack(const KeyHash& key, std::size_t samples) {
    const std::lock_guard lock(mutex_);
    entries_[key].pendingSamples -= static_cast<std::int64_t>(samples);
}

void Ledger::StoreSoon() {
    {
        const std::lock_guard lock(mutex_);
        soon_ = true;
    }
    wake_.notify_one();
}

bool Ledger::CanStore() const {
    const std::lock_guard lock(mutex_);
    return failures_ < kFailuresThatCount;
}

void Ledger::KeepStoring(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        wake_.wait_for(lock, stop, storeEvery_, [this] { return soon_; });
        soon_ = false;
        lock.unlock();
        Store();
        lock.lock();
        std::erase_if(entries_, [](const auto& entry) {
            return entry.second.pendingSamples == 0 &&
                   Clock::now() - entry.second.lastUse > kForgetAfter;
        });
    }
}

void Ledger::Store() {
    const std::vector<Usage> usages = TakePending();
    if (usages.empty()) {
        return;
    }
    try {
        accounts_.Charge(usages);
        Settle(usages, true);
        Note(nullptr);
    } catch (const std::exception& failure) {
        Settle(usages, false);
        Note(failure.what());
    }
}

std::vector<Usage> Ledger::TakePending() {
    std::vector<Usage> usages;
    const std::lock_guard lock(mutex_);
    for (auto& [key, entry] : entries_) {
        const std::int64_t ms = entry.pendingSamples / kSamplesPerMs;
        if (ms > 0) {
            entry.pendingSamples -= ms * kSamplesPerMs;
            entry.storingMs = ms;
            usages.push_back({key, entry.storingMs});
        }
    }
    return usages;
}

void Ledger::Settle(const std::vector<Usage>& usages, bool stored) {
    const std::lock_guard lock(mutex_);
    for (const Usage& usage : usages) {
        Entry& entry = entries_[usage.key];
        entry.storingMs = 0;
        ++entry.changes;
        if (!stored) {
            entry.pendingSamples += usage.ms * kSamplesPerMs;
        } else if (entry.stored) {
            entry.stored->usedMs += usage.ms;
        }
    }
}

void Ledger::Note(const char* failure) {
    int before = 0;
    {
        const std::lock_guard lock(mutex_);
        before = failures_;
        failures_ = failure == nullptr ? 0 : failures_ + 1;
    }
    if (failure != nullptr && before + 1 == kFailuresThatCount) {
        Log(std::string("error: what is used cannot be stored, so no new session is let in; it is "
                        "kept and tried again: ") +
            failure);
    }
    if (failure == nullptr && before >= kFailuresThatCount) {
        Log("what is used is stored again");
    }
}

} // namespace service
