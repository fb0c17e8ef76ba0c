// What keys have used, between the sessions and the accounts: billed in memory at once, stored by a
// thread of its own, so that no caption waits for a disk. Knows nothing of sessions.
#pragma once

#include "accounts.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace service {

// Any thread calls any operation, and none of them waits for what is being stored.
class Ledger {
public:
    // The accounts outlive this one. What has been used is stored every so often, and at the end.
    explicit Ledger(Accounts& accounts,
                    std::chrono::milliseconds storeEvery = std::chrono::milliseconds(900));
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;
    ~Ledger();

    // The account as it stands, what is not stored yet included. Changes by other processes count
    // at once where the accounts are near, else within a second or two; a key in use waits for no
    // network. While the accounts cannot be read, as it was last; throws AccountsFailure when it
    // was never read.
    std::optional<Account> Find(const KeyHash& key);

    // Bills up to so many samples of audio: as many as the key has left. Gives how many that are.
    std::size_t Take(const KeyHash& key, std::size_t samples);

    // Takes back what was billed and came to nothing.
    void GiveBack(const KeyHash& key, std::size_t samples);

    // Stores soon what has been used: a session has ended.
    void StoreSoon();

    // False while what has been used cannot be stored. It is kept and tried again.
    bool CanStore() const;

private:
    using Clock = std::chrono::steady_clock;

    struct Entry {
        std::optional<Account> stored;   // as it was last read
        std::uint64_t changes = 0;       // of `stored`, by this side
        std::int64_t pendingSamples = 0; // below 0 when stored ones were taken back
        std::int64_t storingMs = 0;      // taken from the pending ones, not yet known to be stored
        Clock::time_point lastUse;       // or question
        Clock::time_point lastTake{};
    };

    static std::optional<Account> Standing(const Entry& entry);
    bool IsCurrent(const Entry& entry) const;
    void Refresh(const KeyHash& key);
    void KeepStoring(const std::stop_token& stop);
    void StoreSoonLocked();
    void Store(bool atTheEnd);
    Bill MakeBill(bool atTheEnd);
    void Settle(const std::vector<ListedAccount>& accounts);
    void NoteUnread(const char* failure);
    void Note(const char* failure);

    Accounts& accounts_;
    const std::chrono::milliseconds storeEvery_;

    mutable std::mutex mutex_; // guards what follows; never held while the accounts are read or
                               // written
    std::condition_variable_any wake_;
    std::map<KeyHash, Entry> entries_;
    int failures_ = 0; // to store, one after the other
    bool soon_ = false;
    Clock::time_point unreadNoted_{};
    std::optional<Bill> bill_; // the storing thread's: not yet known to be stored
    std::uint64_t bills_ = 0;
    std::jthread storing_; // last: it ends before what it uses
};

} // namespace service
