// Threads that work off what others must not wait for. Knows nothing of the work.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace service {

// Any thread posts. Work begins in the order in which it was posted. The destructor waits for what
// has begun and drops the rest.
class WorkQueue {
public:
    // Throws nothing that the caller could see to.
    using Work = std::function<void()>;

    explicit WorkQueue(std::size_t threads);
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;
    ~WorkQueue() = default;

    void Post(Work work);

    // Adds threads until there are so many; one thread calls this, beside any that posts.
    void SetThreads(std::size_t threads);

private:
    void WorkOff(const std::stop_token& stop);

    std::mutex mutex_; // guards waiting_; never held during work
    std::condition_variable_any wake_;
    std::deque<Work> waiting_;
    std::vector<std::jthread> threads_; // last: they end before what they use
};

} // namespace service
