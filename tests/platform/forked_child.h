// A copy of the test's process that does something by itself and can be killed in the middle of it.
// To be made while the test has one thread.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

class ForkedChild {
public:
    // `work` gets the descriptor to tell its parent numbers by, and gives the exit code.
    template <typename Work>
    explicit ForkedChild(const Work& work) {
        int ends[2] = {};
        if (pipe(ends) != 0) {
            throw std::runtime_error("no pipe");
        }
        process_ = fork();
        if (process_ == 0) {
            close(ends[0]);
            _exit(work(ends[1]));
        }
        close(ends[1]);
        told_ = ends[0];
    }
    ForkedChild(const ForkedChild&) = delete;
    ForkedChild& operator=(const ForkedChild&) = delete;
    ~ForkedChild() {
        Kill();
        close(told_);
    }

    static void Tell(int descriptor, int number) {
        if (write(descriptor, &number, sizeof number) != sizeof number) {
            _exit(EXIT_FAILURE); // its parent is gone
        }
    }

    // The next number that it tells; -1 when it tells no more.
    int Told() const {
        int number = 0;
        return read(told_, &number, sizeof number) == sizeof number ? number : -1;
    }

    void Kill() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            Wait();
        }
    }

    // Its exit code, or -1 when a signal ended it.
    int Wait() {
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t process_ = -1;
    int told_ = -1;
};
