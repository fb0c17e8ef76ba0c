// One child process with its standard input and output where the caller wants them.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace service {

// Owns a running child: its destructor kills and reaps it, so none is ever left a zombie.
class ChildProcess {
public:
    // Starts `words[0]`, found by PATH, with the two descriptors as standard input and output and
    // no other descriptor of this process. Throws std::system_error.
    ChildProcess(const std::vector<std::string>& words, int input, int output);
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    pid_t Id() const { return id_; }
    bool HasEnded() const;

private:
    pid_t id_ = -1;
};

} // namespace service
