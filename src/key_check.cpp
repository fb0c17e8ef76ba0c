#include "key_check.h"

#include "service_url.h"
#include "thread_start.h"

#include <utility>

namespace {

constexpr HttpTimeOuts kTimeOuts{
    .resolveMs = 8000, .connectMs = 8000, .sendMs = 6000, .receiveMs = 6000};

// The status of the answer, 0 for none; whatever came of the body is in `body`.
DWORD FetchKeyStatus(HttpCaller& caller, const WideString& key, std::string& body) {
    const InternetHandle session = OpenInternet();
    const auto address = CrackServiceUrl();
    const KeyStatusAccess access = AccessToKeyStatus();
    if (!session || !address) {
        return 0;
    }
    const InternetHandle connection(
        WinHttpConnect(session.get(), address->host.c_str(), access.port, 0));
    if (!connection) {
        return 0;
    }
    InternetHandle request = OpenRequest(connection, TEXT("GET"), KeyStatusPath(key), access.https);
    if (!request) {
        return 0;
    }
    return caller.Call(std::move(request), kTimeOuts, nullptr, {}, body).value_or(0);
}

void PostAnswer(const KeyCheckTask& task, const KeyCheckResult& answer) {
    auto result = std::make_unique<KeyCheckResult>(answer);
    if (PostMessageW(task.window, kMsgKeyStatus, reinterpret_cast<WPARAM>(task.asker),
                     reinterpret_cast<LPARAM>(result.get()))) {
        static_cast<void>(result.release()); // now the receiver's
    }
}

void RunKeyCheck(const KeyCheckTask& task) {
    std::string body;
    const DWORD status = FetchKeyStatus(*task.caller, task.key, body);
    if (!task.flags->checkCancelled) {
        PostAnswer(task, ReadKeyAnswer(status, body));
    }
    task.flags->checkInFlight = false;
    PostMessageW(task.window, kMsgKeyCheckEnded, 0, 0); // after the flag: a new check may start
}

} // namespace

bool StartKeyCheckThread(KeyCheckTask task) {
    const std::shared_ptr<KeyCheckFlags> flags = task.flags;
    std::thread thread;
    if (!StartThread(thread, [task = std::move(task)] { RunKeyCheck(task); })) {
        flags->checkInFlight = false;
        return false;
    }
    thread.detach();
    return true;
}
