#include "windowing/foreign_windows.h"

#include "process/descriptor.h"
#include "process/runtime_folder.h"
#include "windowing/window_table.h"

#include <QSocketNotifier>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace windowing {

namespace {

using process::Descriptor;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestWait{1};
constexpr std::size_t kMostClients = 8; // the oldest of more is let go
constexpr int kBacklog = 8;

enum class Operation : std::int32_t { Show = 1, Raise = 2 };

// One packet each way; both ends are the same program.
struct Request {
    Operation operation;
    std::int32_t command; // SW_...
};
struct Answer {
    std::int32_t result;
};

bool IsPlain(char16_t unit) {
    return (unit >= u'0' && unit <= u'9') || (unit >= u'A' && unit <= u'Z') ||
           (unit >= u'a' && unit <= u'z');
}

// Letters and digits as they are, everything else by its code.
std::string SocketPath(const std::u16string& className) {
    const std::string folder = process::RuntimeFolder();
    if (folder.empty()) {
        return {};
    }
    std::string path = folder + "/window-";
    for (const char16_t unit : className) {
        if (IsPlain(unit)) {
            path += static_cast<char>(unit);
        } else {
            path += '-' + std::to_string(static_cast<unsigned>(unit)) + '-';
        }
    }
    return path;
}

// Nothing when the path is too long for a socket.
std::optional<sockaddr_un> AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return std::nullopt;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

const sockaddr* Plain(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

Descriptor NewSocket() {
    return Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

// Never waits: a process that is too busy to be asked counts as none.
Descriptor Connect(const sockaddr_un& address) {
    Descriptor connection = NewSocket();
    if (!connection || connect(connection.Number(), Plain(address), sizeof address) != 0) {
        return Descriptor();
    }
    return connection;
}

Descriptor Listen(const sockaddr_un& address) {
    Descriptor listener = NewSocket();
    if (!listener) {
        return listener;
    }
    fchmod(listener.Number(), S_IRUSR | S_IWUSR); // the name in the folder takes it over
    const auto bound = [&] { return bind(listener.Number(), Plain(address), sizeof address) == 0; };
    if (!bound()) {
        const bool stale = errno == EADDRINUSE && !Connect(address);
        if (!stale || unlink(address.sun_path) != 0 || !bound()) {
            return Descriptor();
        }
    }
    return listen(listener.Number(), kBacklog) == 0 ? std::move(listener) : Descriptor();
}

std::shared_ptr<Window> FirstUnownedWindow(const std::u16string& className) {
    const auto windows = TopLevels();
    const auto found = std::find_if(windows.begin(), windows.end(), [&](const auto& window) {
        return window->owner == nullptr && window->windowClass->name == className;
    });
    return found == windows.end() ? nullptr : *found;
}

std::int32_t CarryOut(const Request& request, const std::u16string& className) {
    const std::shared_ptr<Window> window = FirstUnownedWindow(className);
    if (window == nullptr) {
        return FALSE;
    }
    return request.operation == Operation::Show ? ShowWindow(window->handle, request.command)
                                                : SetForegroundWindow(window->handle);
}

// One request of another process.
class Client {
public:
    Client(Descriptor connection, std::u16string className)
        : connection_(std::move(connection)), className_(std::move(className)),
          readable_(connection_.Number(), QSocketNotifier::Read) {
        QObject::connect(&readable_, &QSocketNotifier::activated, &readable_, [this] { Serve(); });
    }

private:
    void Serve() {
        readable_.setEnabled(false);
        Request request{};
        if (recv(connection_.Number(), &request, sizeof request, 0) == sizeof request) {
            const Answer answer{CarryOut(request, className_)};
            send(connection_.Number(), &answer, sizeof answer, MSG_NOSIGNAL);
        }
        shutdown(connection_.Number(), SHUT_RDWR);
    }

    Descriptor connection_;
    std::u16string className_;
    QSocketNotifier readable_;
};

class Announcement {
public:
    Announcement(Descriptor listener, std::string path, std::u16string className)
        : listener_(std::move(listener)), path_(std::move(path)), className_(std::move(className)),
          callers_(listener_.Number(), QSocketNotifier::Read) {
        QObject::connect(&callers_, &QSocketNotifier::activated, &callers_, [this] { Accept(); });
    }
    ~Announcement() { unlink(path_.c_str()); }
    Announcement(const Announcement&) = delete;
    Announcement& operator=(const Announcement&) = delete;

private:
    void Accept() {
        Descriptor caller(
            accept4(listener_.Number(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!caller) {
            return;
        }
        if (clients_.size() == kMostClients) {
            clients_.pop_front();
        }
        clients_.push_back(std::make_unique<Client>(std::move(caller), className_));
    }

    Descriptor listener_;
    std::string path_;
    std::u16string className_;
    QSocketNotifier callers_;
    std::deque<std::unique_ptr<Client>> clients_;
};

using Announcements = std::map<std::u16string, std::unique_ptr<Announcement>>;

// Neither is ever destroyed: notifiers outlive Qt's statics badly.
Announcements& AllAnnouncements() {
    static Announcements& all = *std::make_unique<Announcements>().release();
    return all;
}

using ForeignWindows = std::map<HWND, std::u16string>; // to their classes

ForeignWindows& AllForeignWindows() {
    static ForeignWindows& all = *std::make_unique<ForeignWindows>().release();
    return all;
}

std::optional<Answer> WaitForAnswer(const Descriptor& connection, Clock::time_point end) {
    pollfd answered{connection.Number(), POLLIN, 0};
    int ready = -1;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        ready = poll(&answered, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
    } while (ready < 0 && errno == EINTR);
    Answer answer{};
    if (ready != 1 || recv(connection.Number(), &answer, sizeof answer, 0) != sizeof answer) {
        return std::nullopt;
    }
    return answer;
}

bool Ask(HWND window, const Request& request) {
    const auto found = AllForeignWindows().find(window);
    if (found == AllForeignWindows().end()) {
        return false;
    }
    const auto address = AddressOf(SocketPath(found->second));
    const Descriptor connection = address.has_value() ? Connect(*address) : Descriptor();
    if (!connection ||
        send(connection.Number(), &request, sizeof request, MSG_NOSIGNAL) != sizeof request) {
        return false;
    }
    const auto answer = WaitForAnswer(connection, Clock::now() + kLongestWait);
    return answer.has_value() && answer->result != FALSE;
}

} // namespace

void AnnounceClass(const std::u16string& className) {
    const std::string path = SocketPath(className);
    const auto address = AddressOf(path);
    if (!address.has_value()) {
        return;
    }
    Descriptor listener = Listen(*address);
    if (listener) {
        AllAnnouncements()[className] =
            std::make_unique<Announcement>(std::move(listener), path, className);
    }
}

void WithdrawClass(const std::u16string& className) {
    AllAnnouncements().erase(className);
}

HWND FindForeignWindow(const std::u16string& className) {
    const auto address = AddressOf(SocketPath(className));
    if (!address.has_value() || !Connect(*address)) {
        return nullptr;
    }
    auto& windows = AllForeignWindows();
    const auto known = std::find_if(windows.begin(), windows.end(),
                                    [&](const auto& entry) { return entry.second == className; });
    return known != windows.end() ? known->first
                                  : windows.emplace(NewHandle(), className).first->first;
}

bool ShowForeignWindow(HWND window, int command) {
    return Ask(window, {Operation::Show, command});
}

bool RaiseForeignWindow(HWND window) {
    return Ask(window, {Operation::Raise, 0});
}

} // namespace windowing

HWND FindWindowW(LPCWSTR className, LPCWSTR title) {
    if (className == nullptr || title != nullptr) {
        return nullptr;
    }
    const auto windows = windowing::TopLevels();
    const auto found = std::find_if(windows.begin(), windows.end(), [&](const auto& window) {
        return window->windowClass->name == className;
    });
    return found != windows.end() ? (*found)->handle : windowing::FindForeignWindow(className);
}
