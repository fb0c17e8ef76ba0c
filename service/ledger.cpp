#include "ledger.h"

#include "log.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <string>

namespace service {
namespace {

constexpr std::int64_t kSamplesPerMs = 16;
constexpr int kFailuresThatCount = 2; // one alone is another process that is writing just now
constexpr auto kLeastPause = std::chrono::milliseconds(50); // between two bills
constexpr auto kSameLogEvery = std::chrono::minutes(1);
constexpr auto kForgetAfter = std::chrono::minutes(1);

// Where accounts are far away, a key that was asked for so lately is part of every bill, and so as
// the last one has found it.
constexpr auto kInUse = std::chrono::seconds(10);

// Of a quota that others may spend, too, as much is kept as the next bills may need: several times
// what the last one had, and this much to begin with. Kept as long as audio comes.
constexpr std::int64_t kLeastWantMs = 3000;
constexpr std::int64_t kWantTimes = 3;
constexpr auto kWantAfterTake = std::chrono::seconds(3);

} // namespace

Ledger::Ledger(Accounts& accounts, std::chrono::milliseconds storeEvery)
    : accounts_(accounts), storeEvery_(storeEvery),
      storing_([this](const std::stop_token& stop) { KeepStoring(stop); }) {}

Ledger::~Ledger() {
    storing_.request_stop();
    storing_.join();
    Store(true);
    std::int64_t lostMs = 0;
    for (const auto& [key, entry] : entries_) {
        lostMs += entry.storingMs + std::max<std::int64_t>(entry.pendingSamples, 0) / kSamplesPerMs;
    }
    if (lostMs > 0) {
        Log("error: " + std::to_string(lostMs) +
            " ms of what was used could not be stored and are lost");
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

bool Ledger::IsCurrent(const Entry& entry) const {
    // What is read while usage is being stored may hold that usage or not: the answer to that bill
    // tells.
    if (entry.storingMs > 0) {
        return true;
    }
    return !accounts_.AreNear() && (failures_ > 0 || Clock::now() - entry.lastUse < kInUse);
}

void Ledger::Refresh(const KeyHash& key) {
    std::uint64_t changes = 0;
    bool known = false;
    {
        const std::lock_guard lock(mutex_);
        const auto found = entries_.find(key);
        known = found != entries_.end();
        if (known && IsCurrent(found->second)) {
            found->second.lastUse = Clock::now();
            return;
        }
        changes = known ? found->second.changes : 0;
    }

    std::optional<Account> read;
    try {
        read = accounts_.Find(key);
    } catch (const AccountsFailure& failure) {
        NoteUnread(failure.what());
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
    const auto now = Clock::now();
    if (!accounts_.AreNear() && now - found->second.lastTake > kWantAfterTake) {
        StoreSoonLocked(); // so that others know of it
    }
    found->second.lastUse = found->second.lastTake = now;
    return taken;
}

void Ledger::GiveBack(const KeyHash& key, std::size_t samples) {
    const std::lock_guard lock(mutex_);
    entries_[key].pendingSamples -= static_cast<std::int64_t>(samples);
}

void Ledger::StoreSoon() {
    const std::lock_guard lock(mutex_);
    StoreSoonLocked();
}

void Ledger::StoreSoonLocked() {
    soon_ = true;
    wake_.notify_one();
}

bool Ledger::CanStore() const {
    const std::lock_guard lock(mutex_);
    return failures_ < kFailuresThatCount;
}

void Ledger::KeepStoring(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    Clock::time_point stored{};
    while (!stop.stop_requested()) {
        wake_.wait_for(lock, stop, storeEvery_, [this] { return soon_; });
        // Many who come and go are no reason to store without a pause.
        wake_.wait_until(lock, stop, stored + std::min(storeEvery_, kLeastPause),
                         [] { return false; });
        soon_ = false;
        stored = Clock::now();
        lock.unlock();
        Store(false);
        lock.lock();
        std::erase_if(entries_, [](const auto& entry) {
            return std::abs(entry.second.pendingSamples) < kSamplesPerMs &&
                   entry.second.storingMs == 0 &&
                   Clock::now() - entry.second.lastUse > kForgetAfter;
        });
    }
}

void Ledger::Store(bool atTheEnd) {
    const bool again = bill_.has_value();
    if (!again) {
        bill_ = MakeBill(atTheEnd);
    }
    try {
        Settle(accounts_.Settle(*bill_));
        Note(nullptr);
    } catch (const std::exception& failure) {
        Note(failure.what());
        if (bill_->usages.empty()) {
            bill_.reset(); // it was a question alone
        }
        return;
    }
    if (again) {
        Store(atTheEnd); // what has come since
    }
}

// At the end nothing is kept of any quota.
Bill Ledger::MakeBill(bool atTheEnd) {
    const std::lock_guard lock(mutex_);
    Bill bill{++bills_, {}};
    const auto now = Clock::now();
    for (auto& [key, entry] : entries_) {
        const std::int64_t ms = std::max<std::int64_t>(entry.pendingSamples / kSamplesPerMs, 0);
        const bool shared = !accounts_.AreNear() && now - entry.lastUse < kInUse;
        if (ms == 0 && !shared) {
            continue;
        }
        const bool wants = !atTheEnd && now - entry.lastTake < kWantAfterTake;
        entry.pendingSamples -= ms * kSamplesPerMs;
        entry.storingMs = ms;
        bill.usages.push_back({key, ms, wants ? std::max(kLeastWantMs, kWantTimes * ms) : 0});
    }
    return bill;
}

void Ledger::Settle(const std::vector<ListedAccount>& accounts) {
    const std::lock_guard lock(mutex_);
    for (const Usage& usage : bill_->usages) {
        Entry& entry = entries_[usage.key];
        entry.storingMs = 0;
        ++entry.changes;
        const auto found = std::ranges::find(accounts, usage.key, &ListedAccount::key);
        entry.stored = found == accounts.end() ? std::nullopt : std::optional(found->account);
    }
    bill_.reset();
}

// Of many in a row, one a minute.
void Ledger::NoteUnread(const char* failure) {
    {
        const std::lock_guard lock(mutex_);
        const auto now = Clock::now();
        if (now - unreadNoted_ < kSameLogEvery) {
            return;
        }
        unreadNoted_ = now;
    }
    Log(std::string("error: keys cannot be looked up: ") + failure);
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
