// A consumer of captured audio that a test can wait for.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

class PcmCollector {
public:
    // Called by capture threads.
    void Take(const std::uint8_t* data, std::uint32_t bytes) {
        const std::lock_guard lock(mutex_);
        std::vector<std::int16_t> chunk(bytes / 2);
        std::memcpy(chunk.data(), data, bytes);
        samples_.insert(samples_.end(), chunk.begin(), chunk.end());
        chunks_.push_back(std::move(chunk));
        arrived_.notify_all();
    }

    bool WaitForSamples(std::size_t count) {
        std::unique_lock lock(mutex_);
        return arrived_.wait_for(lock, std::chrono::seconds(10),
                                 [&] { return samples_.size() >= count; });
    }
    std::vector<std::int16_t> Samples() const {
        const std::lock_guard lock(mutex_);
        return samples_;
    }
    std::vector<std::vector<std::int16_t>> Chunks() const {
        const std::lock_guard lock(mutex_);
        return chunks_;
    }

private:
    mutable std::mutex mutex_; // guards both lists
    std::condition_variable arrived_;
    std::vector<std::int16_t> samples_;
    std::vector<std::vector<std::int16_t>> chunks_;
};
