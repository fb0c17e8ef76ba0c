#include "refused_keys.h"

#include "log.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace service {
namespace {

constexpr std::size_t kMostAddresses = 1000;
constexpr std::size_t kMostLines = 10;

} // namespace

void RefusedKeys::Count(const std::string& address) {
    const std::lock_guard lock(mutex_);
    const auto known = counts_.find(address);
    if (known != counts_.end()) {
        ++known->second;
    } else if (counts_.size() < kMostAddresses) {
        counts_.emplace(address, 1);
    } else {
        ++others_;
    }
}

void RefusedKeys::LogAndForget() {
    std::vector<std::pair<std::string, std::size_t>> counts;
    std::size_t others = 0;
    {
        const std::lock_guard lock(mutex_);
        counts.assign(counts_.begin(), counts_.end());
        counts_.clear();
        others = std::exchange(others_, 0);
    }
    std::ranges::sort(counts, std::greater(), &std::pair<std::string, std::size_t>::second);
    for (std::size_t i = 0; i < counts.size(); ++i) {
        if (i < kMostLines) {
            Log("refused keys from " + counts[i].first + ": " + std::to_string(counts[i].second));
        } else {
            others += counts[i].second;
        }
    }
    if (others > 0) {
        Log("refused keys from other addresses: " + std::to_string(others));
    }
}

} // namespace service
