// The translators of the service: a few chains for each mode, shared by all sessions, as a sentence
// takes a chain some milliseconds and a chain takes a hundred megabytes. Knows nothing of languages
// beyond the modes' names.
#pragma once

#include "apertium_chain.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace service {

// Any thread calls any operation.
class ChainPool {
public:
    explicit ChainPool(std::size_t chainsOfMode = 2) : chainsOfMode_(chainsOfMode) {}
    ChainPool(const ChainPool&) = delete;
    ChainPool& operator=(const ChainPool&) = delete;

    // Sees to one chain that is starting or started. Throws when the mode cannot be had.
    void Prepare(const std::string& mode);

    // The translation, empty when the chain gave none; nothing when none was free for so long.
    std::optional<std::string> Translate(const std::string& mode, std::string_view text,
                                         std::chrono::milliseconds patience);

private:
    using Chain = std::unique_ptr<ApertiumChain>;
    struct Chains {
        std::vector<Chain> idle;
        std::size_t made = 0; // those in use included
    };

    Chain Take(const std::string& mode, std::chrono::milliseconds patience);
    Chain Make(const std::string& mode);
    void Return(const std::string& mode, Chain chain);

    const std::size_t chainsOfMode_;
    std::mutex mutex_; // guards chains_; never held while a chain starts or works
    std::condition_variable returned_;
    std::map<std::string, Chains> chains_; // by mode
};

} // namespace service
