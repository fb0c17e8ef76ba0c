#include "work_queue.h"

#include <utility>

namespace service {

WorkQueue::WorkQueue(std::size_t threads) {
    SetThreads(threads);
}

void WorkQueue::SetThreads(std::size_t threads) {
    while (threads_.size() < threads) {
        threads_.emplace_back([this](const std::stop_token& stop) { WorkOff(stop); });
    }
}

void WorkQueue::Post(Work work) {
    {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(work));
    }
    wake_.notify_one();
}

void WorkQueue::WorkOff(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (wake_.wait(lock, stop, [this] { return !waiting_.empty(); })) {
        if (stop.stop_requested()) {
            return;
        }
        {
            const Work work = std::move(waiting_.front());
            waiting_.pop_front();
            lock.unlock();
            work();
        }
        lock.lock();
    }
}

} // namespace service
