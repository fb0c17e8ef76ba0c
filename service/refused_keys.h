// How often requests came with keys that are not known or disabled, and from where: what a guess
// looks like to an administrator. Never given a key.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace service {

// Any thread.
class RefusedKeys {
public:
    void Count(const std::string& address);

    // One line in the log for each address since the last call, the busiest first and a few at
    // most.
    void LogAndForget();

private:
    std::mutex mutex_; // guards what follows
    std::map<std::string, std::size_t> counts_;
    std::size_t others_ = 0; // from addresses beyond those that are told apart
};

} // namespace service
