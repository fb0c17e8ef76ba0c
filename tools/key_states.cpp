// The settings popup with the real service and the real devices, told by lines of input what to do:
//   key TEXT   types the text into the emptied field and prints the state that it comes to, after
//   how
//              many milliseconds, and the longest time for which the windows were not served
//              meanwhile
//   again      checks what is in the field once more
//   devices    refreshes both lists and prints how many entries they have, and which is chosen
#include "popup_probe.h"

#include <objbase.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

long long InMilliseconds(Clock::duration time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

// Serves the windows, and remembers the longest gap in that.
class Session {
public:
    void Serve(const std::function<bool()>& done) {
        while (!done()) {
            popup_.Pump();
            longestGap_ = std::max(longestGap_, Clock::now() - served_);
            served_ = Clock::now();
            poll(nullptr, 0, 1);
        }
    }
    // False at the end of the input.
    bool ReadLine(std::string& line) {
        line.clear();
        char next = 0;
        for (;;) {
            pollfd input{STDIN_FILENO, POLLIN, 0};
            Serve([&] { return poll(&input, 1, 0) > 0; });
            if (read(STDIN_FILENO, &next, 1) != 1) {
                return false;
            }
            if (next == '\n') {
                return true;
            }
            line += next;
        }
    }

    void ShowKey(const std::string& key) {
        popup_.SetKey("");
        popup_.Type(key);
        PrintState();
    }
    void ShowAgain() {
        popup_.Popup().Hide();
        popup_.Popup().Show();
        PrintState();
    }
    void ShowDevices() {
        popup_.Command(kRefreshMicId);
        popup_.Command(kRefreshLoopbackId);
        for (const int id : {kMicListId, kLoopbackListId}) {
            std::printf("%zu %s\n", popup_.List(id).items_.size(), popup_.Selected(id).c_str());
        }
        std::fflush(stdout);
    }

private:
    void PrintState() {
        const auto start = Clock::now();
        longestGap_ = Clock::duration(0);
        Serve([&] { return popup_.Status() != KeyStatusChecking && !popup_.CheckInFlight(); });
        std::printf("%s | %lld | %lld\n", popup_.StatusText().c_str(),
                    InMilliseconds(Clock::now() - start), InMilliseconds(longestGap_));
        std::fflush(stdout);
    }

    PopupProbe popup_;
    Clock::time_point served_ = Clock::now();
    Clock::duration longestGap_{0};
};

} // namespace

int main() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    Session session;
    std::string line;
    while (session.ReadLine(line)) {
        if (line.starts_with("key ")) {
            session.ShowKey(line.substr(4));
        } else if (line == "again") {
            session.ShowAgain();
        } else if (line == "devices") {
            session.ShowDevices();
        }
    }
    return 0;
}
