#include "chain_pool.h"

#include <algorithm>

namespace service {
namespace {

// Longer than a text takes: only then is there more to do than the chains at hand can.
constexpr auto kBeforeAnother = std::chrono::milliseconds(20);

} // namespace

void ChainPool::Prepare(const std::string& mode) {
    {
        const std::lock_guard lock(mutex_);
        if (chains_[mode].made > 0) {
            return;
        }
        ++chains_[mode].made;
    }
    Return(mode, Make(mode));
}

std::optional<std::string> ChainPool::Translate(const std::string& mode, std::string_view text,
                                                std::chrono::milliseconds patience) {
    Chain chain = Take(mode, patience);
    if (!chain) {
        return std::nullopt;
    }
    std::string translation = chain->Translate(text);
    Return(mode, std::move(chain));
    return translation;
}

ChainPool::Chain ChainPool::Take(const std::string& mode, std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    Chains& chains = chains_[mode];
    const auto someIdle = [&] { return !chains.idle.empty(); };
    if (!returned_.wait_for(lock, std::min(patience, kBeforeAnother), someIdle)) {
        if (chains.made < chainsOfMode_) {
            ++chains.made;
            lock.unlock();
            return Make(mode);
        }
        if (!returned_.wait_for(lock, patience, someIdle)) {
            return nullptr;
        }
    }
    Chain chain = std::move(chains.idle.back());
    chains.idle.pop_back();
    return chain;
}

// One that has been counted already.
ChainPool::Chain ChainPool::Make(const std::string& mode) {
    try {
        return std::make_unique<ApertiumChain>(mode);
    } catch (...) {
        const std::lock_guard lock(mutex_);
        --chains_[mode].made;
        throw;
    }
}

void ChainPool::Return(const std::string& mode, Chain chain) {
    {
        const std::lock_guard lock(mutex_);
        chains_[mode].idle.push_back(std::move(chain));
    }
    returned_.notify_all(); // those who wait may wait for different modes
}

} // namespace service
