#include "child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string_view>
#include <system_error>
#include <utility>

namespace service {
namespace {

void Require(int error, const std::string& what) {
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

class FileActions {
public:
    FileActions() { Require(posix_spawn_file_actions_init(&actions_), "spawn set-up"); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
    posix_spawn_file_actions_t* Get() { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

class Attributes {
public:
    Attributes() { Require(posix_spawnattr_init(&attributes_), "spawn set-up"); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { posix_spawnattr_destroy(&attributes_); }
    posix_spawnattr_t* Get() { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

// This process's environment in a locale that reads and writes UTF-8 whatever the user's is.
std::vector<std::string> Utf8Environment() {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        if (!text.starts_with("LC_") && !text.starts_with("LANG")) {
            entries.emplace_back(text);
        }
    }
    entries.emplace_back("LC_ALL=C.UTF-8");
    return entries;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& words, int input, int output) {
    FileActions actions;
    Require(posix_spawn_file_actions_adddup2(actions.Get(), input, STDIN_FILENO), "spawn set-up");
    Require(posix_spawn_file_actions_adddup2(actions.Get(), output, STDOUT_FILENO), "spawn set-up");
    Require(
        posix_spawn_file_actions_addopen(actions.Get(), STDERR_FILENO, "/dev/null", O_WRONLY, 0),
        "spawn set-up");
    // A client's connection inherited by a child would stay open behind the service's back.
    Require(posix_spawn_file_actions_addclosefrom_np(actions.Get(), STDERR_FILENO + 1),
            "spawn set-up");

    // The service blocks its end signals and ignores SIGPIPE; neither is the child's business. A
    // group of its own keeps the terminal's Ctrl-C from the child: its parent ends it in order.
    Attributes attributes;
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    Require(posix_spawnattr_setsigmask(attributes.Get(), &none), "spawn set-up");
    Require(posix_spawnattr_setsigdefault(attributes.Get(), &all), "spawn set-up");
    Require(posix_spawnattr_setpgroup(attributes.Get(), 0), "spawn set-up");
    Require(posix_spawnattr_setflags(attributes.Get(), POSIX_SPAWN_SETSIGMASK |
                                                           POSIX_SPAWN_SETSIGDEF |
                                                           POSIX_SPAWN_SETPGROUP),
            "spawn set-up");

    std::vector<std::string> arguments = words;
    std::vector<std::string> environment = Utf8Environment();
    Require(posix_spawnp(&id_, words.at(0).c_str(), actions.Get(), attributes.Get(),
                         Pointers(arguments).data(), Pointers(environment).data()),
            "cannot start " + words[0]);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept : id_(std::exchange(other.id_, -1)) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    std::swap(id_, other.id_);
    return *this;
}

ChildProcess::~ChildProcess() {
    if (id_ <= 0) {
        return;
    }
    ::kill(id_, SIGKILL);
    while (::waitpid(id_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

bool ChildProcess::HasEnded() const {
    siginfo_t info{};
    const int left = WEXITED | WNOHANG | WNOWAIT; // it is the destructor that reaps
    return ::waitid(P_PID, static_cast<id_t>(id_), &info, left) == 0 && info.si_pid == id_;
}

} // namespace service
