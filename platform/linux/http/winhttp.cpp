// The WinHTTP calls: handles, arguments and wide text, in front of Session, Connection and Request.
// Knows nothing of the wire.
#include "http/connection.h"
#include "http/request.h"
#include "http/session.h"
#include "http/url.h"
#include "process/broken_pipes.h"
#include "process/never_destroyed.h"
#include "text/utf.h"

#include <winhttp.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>

namespace {

using WideView = std::basic_string_view<WCHAR>;

constexpr DWORD kTerminated = 0xFFFFFFFF; // as a length: up to the terminating zero

WideView View(LPCWSTR text, DWORD length) {
    if (!text) {
        return {};
    }
    return length == kTerminated ? WideView(text) : WideView(text, length);
}

// ---- Handles ----------------------------------------------------------------------------------

using Session = http::Session;
using Connection = http::Connection;
using Request = http::Request;

// Every open handle, so that null, closed and foreign ones are told apart from those of each kind.
// What was opened from a handle shares in the ownership of what it stands for, which makes the
// order of closing free. No handle is given out twice: a thread that still uses one which another
// thread has closed must not find something else there. Any thread.
class OpenHandles {
public:
    template <typename Object>
    HINTERNET Add(std::shared_ptr<Object> object) {
        const std::scoped_lock lock(mutex_);
        // A number of our own; nothing is where it points.
        HINTERNET handle = reinterpret_cast<HINTERNET>(++last_);
        objects_.emplace(handle, std::move(object));
        return handle;
    }

    // Null for a handle that is not open or of another kind.
    template <typename Object>
    std::shared_ptr<Object> Find(HINTERNET handle) {
        const std::scoped_lock lock(mutex_);
        const auto found = objects_.find(handle);
        if (found == objects_.end()) {
            return nullptr;
        }
        const auto* object = std::get_if<std::shared_ptr<Object>>(&found->second);
        return object ? *object : nullptr;
    }

    bool Close(HINTERNET handle) {
        if (const auto request = Find<Request>(handle)) {
            request->Close(); // first: whoever finds it closed may free what it was sending
        }
        std::unique_lock lock(mutex_);
        const auto closed = objects_.extract(handle);
        lock.unlock(); // the object's end may say good-bye to the server
        return !closed.empty();
    }

private:
    using AnyObject = std::variant<std::shared_ptr<Session>, std::shared_ptr<Connection>,
                                   std::shared_ptr<Request>>;

    std::mutex mutex_; // guards what follows; nothing but looking up is done under it
    std::uintptr_t last_ = 0;
    std::unordered_map<HINTERNET, AnyObject> objects_;
};

OpenHandles& Handles() {
    // Never destroyed: threads may still hold handles when the process ends.
    static OpenHandles& handles = process::NeverDestroyed<OpenHandles>();
    return handles;
}

// Once, before anything else of libcurl.
bool IsLibraryReady() {
    static const bool isReady = [] {
        // The server may close a connection while it is written to. libcurl leaves that to the
        // program when it is to keep its hands off signals (CURLOPT_NOSIGNAL).
        process::IgnoreBrokenPipes();
        return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    }();
    return isReady;
}

// ---- Splitting URLs -----------------------------------------------------------------------------

// Copies a part into the caller's buffer. A length of 0 means that the part is not wanted.
bool StorePart(const std::string& part, LPWSTR buffer, DWORD& length) {
    if (length == 0) {
        return true;
    }
    const std::u16string wide = text::ToWide(part);
    const bool fits = buffer && wide.size() < length;
    length = static_cast<DWORD>(wide.size());
    if (!fits) {
        ++length; // with the terminating zero
        return false;
    }
    *std::copy(wide.begin(), wide.end(), buffer) = 0;
    return true;
}

bool HasControl(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char character) {
        return static_cast<unsigned char>(character) < ' ' || character == '\x7F';
    });
}

std::optional<http::Method> ParseMethod(LPCWSTR method) {
    if (!method || WideView(method) == TEXT("GET")) {
        return http::Method::Get;
    }
    if (WideView(method) == TEXT("POST")) {
        return http::Method::Post;
    }
    return std::nullopt;
}

} // namespace

BOOL WinHttpCrackUrl(LPCWSTR url, DWORD length, DWORD flags, URL_COMPONENTS* components) {
    if (!url || flags != 0 || !components || components->dwStructSize != sizeof *components ||
        !IsLibraryReady()) {
        return FALSE;
    }
    const auto parts = http::SplitUrl(text::ToUtf8(View(url, length == 0 ? kTerminated : length)));
    if (!parts) {
        return FALSE;
    }
    const bool wantsExtraInfo = components->dwExtraInfoLength != 0;
    const std::string path = wantsExtraInfo ? parts->path : parts->path + parts->extraInfo;
    const bool allFit =
        StorePart(parts->scheme, components->lpszScheme, components->dwSchemeLength) &&
        StorePart(parts->user, components->lpszUserName, components->dwUserNameLength) &&
        StorePart(parts->password, components->lpszPassword, components->dwPasswordLength) &&
        StorePart(parts->host, components->lpszHostName, components->dwHostNameLength) &&
        StorePart(path, components->lpszUrlPath, components->dwUrlPathLength) &&
        StorePart(parts->extraInfo, components->lpszExtraInfo, components->dwExtraInfoLength);
    if (!allFit) {
        return FALSE;
    }
    components->nScheme = parts->scheme == "https" ? INTERNET_SCHEME_HTTPS : INTERNET_SCHEME_HTTP;
    components->nPort = parts->port;
    return TRUE;
}

HINTERNET WinHttpOpen(LPCWSTR userAgent, DWORD accessType, LPCWSTR proxyName, LPCWSTR proxyBypass,
                      DWORD flags) {
    std::string agent = text::ToUtf8(View(userAgent, kTerminated));
    if (accessType != WINHTTP_ACCESS_TYPE_DEFAULT_PROXY || proxyName || proxyBypass || flags != 0 ||
        HasControl(agent) || !IsLibraryReady()) {
        return nullptr;
    }
    return Handles().Add(std::make_shared<Session>(http::MakeSession(std::move(agent))));
}

BOOL WinHttpSetOption(HINTERNET session, DWORD option, LPVOID value, DWORD bytes) {
    DWORD attempts = 0;
    if (!Handles().Find<Session>(session) || option != WINHTTP_OPTION_CONNECT_RETRIES || !value ||
        bytes != sizeof attempts) {
        return FALSE;
    }
    std::memcpy(&attempts, value, sizeof attempts);
    return attempts == 1 ? TRUE : FALSE; // as many as are made anyway
}

HINTERNET WinHttpConnect(HINTERNET session, LPCWSTR host, INTERNET_PORT port, DWORD reserved) {
    auto common = Handles().Find<Session>(session);
    std::string hostText = text::ToUtf8(View(host, kTerminated));
    if (!common || reserved != 0 || !http::MakeOrigin(true, hostText, port)) {
        return nullptr;
    }
    auto connection = std::make_shared<Connection>(std::move(common), std::move(hostText), port);
    return connection->IsUsable() ? Handles().Add(std::move(connection)) : nullptr;
}

HINTERNET WinHttpOpenRequest(HINTERNET connection, LPCWSTR method, LPCWSTR path, LPCWSTR version,
                             LPCWSTR referrer, LPCWSTR* acceptTypes, DWORD flags) {
    auto parent = Handles().Find<Connection>(connection);
    const auto verb = ParseMethod(method);
    if (!parent || !verb || version || referrer || acceptTypes ||
        (flags & ~WINHTTP_FLAG_SECURE) != 0) {
        return nullptr;
    }
    const bool secure = (flags & WINHTTP_FLAG_SECURE) != 0;
    auto origin = http::MakeOrigin(secure, parent->Host(), parent->Port());
    if (!origin) {
        return nullptr;
    }
    http::Address address{secure, std::move(*origin),
                          http::MakeTarget(text::ToUtf8(View(path, kTerminated)))};
    auto request = std::make_shared<Request>(std::move(parent), *verb, std::move(address));
    return request->IsUsable() ? Handles().Add(std::move(request)) : nullptr;
}

BOOL WinHttpSetTimeouts(HINTERNET request, int resolveMs, int connectMs, int sendMs,
                        int receiveMs) {
    const auto target = Handles().Find<Request>(request);
    if (!target) {
        return FALSE;
    }
    target->SetTimeOuts({resolveMs, connectMs, sendMs, receiveMs});
    return TRUE;
}

BOOL WinHttpAddRequestHeaders(HINTERNET request, LPCWSTR headers, DWORD length, DWORD modifiers) {
    const auto target = Handles().Find<Request>(request);
    if (!target || !headers || modifiers != WINHTTP_ADDREQ_FLAG_ADD) {
        return FALSE;
    }
    return target->AddHeaders(text::ToUtf8(View(headers, length))) ? TRUE : FALSE;
}

BOOL WinHttpSendRequest(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID body,
                        DWORD bodyLength, DWORD totalLength, DWORD_PTR /*context*/) {
    const auto target = Handles().Find<Request>(request);
    if (!target || bodyLength != totalLength || (!body && bodyLength != 0)) {
        return FALSE;
    }
    return target->AddHeaders(text::ToUtf8(View(headers, headersLength))) &&
                   target->Send(body, bodyLength)
               ? TRUE
               : FALSE;
}

BOOL WinHttpReceiveResponse(HINTERNET request, LPVOID reserved) {
    const auto target = Handles().Find<Request>(request);
    return target && !reserved && target->ReceiveHead() ? TRUE : FALSE;
}

BOOL WinHttpQueryHeaders(HINTERNET request, DWORD infoLevel, LPCWSTR name, LPVOID buffer,
                         LPDWORD bufferBytes, LPDWORD index) {
    const auto target = Handles().Find<Request>(request);
    if (!target || infoLevel != (WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER) || name ||
        !buffer || !bufferBytes || index) {
        return FALSE;
    }
    const auto status = target->Status();
    const auto number = static_cast<DWORD>(status.value_or(0));
    const bool fits = *bufferBytes >= sizeof number;
    *bufferBytes = sizeof number;
    if (!status || !fits) {
        return FALSE;
    }
    std::memcpy(buffer, &number, sizeof number);
    return TRUE;
}

BOOL WinHttpQueryDataAvailable(HINTERNET request, LPDWORD bytes) {
    const auto target = Handles().Find<Request>(request);
    const auto available = target && bytes ? target->AwaitBody() : std::nullopt;
    if (!available) {
        return FALSE;
    }
    *bytes = static_cast<DWORD>(std::min<std::size_t>(*available, kTerminated));
    return TRUE;
}

BOOL WinHttpReadData(HINTERNET request, LPVOID buffer, DWORD bytes, LPDWORD read) {
    const auto target = Handles().Find<Request>(request);
    const auto taken = target && buffer && read ? target->Take(buffer, bytes) : std::nullopt;
    if (!taken) {
        return FALSE;
    }
    *read = static_cast<DWORD>(*taken);
    return TRUE;
}

BOOL WinHttpCloseHandle(HINTERNET handle) {
    return Handles().Close(handle) ? TRUE : FALSE;
}
