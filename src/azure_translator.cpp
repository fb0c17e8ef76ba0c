#include "azure_translator.h"

#include "debug_trace.h"
#include "json_scanner.h"
#include "service_message.h"
#include "thread_start.h"

#include <iterator>

namespace {

constexpr std::size_t kMaxWaitingAudio = std::size_t{10} * 60 * 32000; // bytes: ten minutes

constexpr HttpTimeOuts kTimeOuts{
    .resolveMs = 10000, .connectMs = 10000, .sendMs = 8000, .receiveMs = 8000};
constexpr const WCHAR* kAddedHeaders =
    TEXT("Content-Type: application/json\r\nConnection: keep-alive\r\n");
constexpr const WCHAR* kUnknown = TEXT("unknown");

WideString Decimal(DWORD number) {
    WCHAR text[16];
    FormatWide(text, std::size(text), TEXT("%lu"), static_cast<unsigned long>(number));
    return text;
}

WideString MachineId() {
    WCHAR name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = static_cast<DWORD>(std::size(name));
    return GetComputerNameW(name, &size) ? name : kUnknown;
}

WideString OsVersion() {
    // The documented version calls tell a program what it was built for, so the native one is
    // asked; it is in no import library.
    using VersionCall = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    HMODULE native = GetModuleHandleW(TEXT("ntdll.dll"));
    if (native == nullptr) {
        return kUnknown;
    }
    const auto call = reinterpret_cast<VersionCall>(
        reinterpret_cast<void*>(GetProcAddress(native, "RtlGetVersion")));
    RTL_OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    if (call == nullptr || call(&version) != 0) {
        return kUnknown;
    }
    WCHAR text[64];
    FormatWide(text, std::size(text), TEXT("Windows %lu.%lu.%lu"),
               static_cast<unsigned long>(version.dwMajorVersion),
               static_cast<unsigned long>(version.dwMinorVersion),
               static_cast<unsigned long>(version.dwBuildNumber));
    return text;
}

// The error text of a session that the service did not open.
WideString RefusalText(DWORD status, const std::string& response) {
    if (status == 403) {
        return ForbiddenDetail(response);
    }
    return TEXT("Server error ") + Decimal(status) + TEXT(": ") + Utf8ToWide(response);
}

} // namespace

AzureTranslator::AzureTranslator() : audioBuffer_(kMaxWaitingAudio) {
    TraceText(TEXT("[PROXY] ctor\n"));
}

AzureTranslator::~AzureTranslator() {
    TraceText(TEXT("[PROXY] dtor\n"));
    Stop();
}

void AzureTranslator::Configure(const WideString& accessKey, const WideString& langA,
                                const WideString& langATgt, const WideString& langB,
                                const WideString& langBTgt, ResultCallback onResult,
                                ErrorCallback onError) {
    accessKey_ = accessKey;
    langA_ = langA;
    langATgt_ = langATgt;
    langB_ = langB;
    langBTgt_ = langBTgt;
    onResult_ = std::move(onResult);
    onError_ = std::move(onError);

    machineId_ = MachineId();
    osVersion_ = OsVersion();
    ProxyTrace(TEXT("[PROXY] OS version: %s\n"), osVersion_.c_str());
    clientVersion_ = TEXT("1.0.0");
    ProxyTrace(TEXT("[PROXY] Client version: %s\n"), clientVersion_.c_str());

    if (const auto address = CrackServiceUrl()) {
        host_ = address->host;
        port_ = address->port;
        https_ = address->https;
    }
    ProxyTrace(TEXT("[PROXY] Configure host=%s port=%u https=%d\n"), host_.c_str(), unsigned{port_},
               https_ ? 1 : 0);
}

bool AzureTranslator::Start() {
    if (running_) {
        return true;
    }
    OpenConnection();
    if (!hSession_ || !hConnect_) {
        return false;
    }
    const std::string body = ServiceMessage({{"access_key", WideToUtf8(accessKey_)},
                                             {"machine_id", WideToUtf8(machineId_)},
                                             {"os_version", WideToUtf8(osVersion_)},
                                             {"client_version", WideToUtf8(clientVersion_)},
                                             {"lang_a", WideToUtf8(langA_)},
                                             {"lang_a_tgt", WideToUtf8(langATgt_)},
                                             {"lang_b", WideToUtf8(langB_)},
                                             {"lang_b_tgt", WideToUtf8(langBTgt_)}});
    std::string response;
    const DWORD status = HttpRequest(caller_, TEXT("POST"), TEXT("/session/start"), body, response);
    ProxyTrace(TEXT("[PROXY] /session/start status=%u\n"), static_cast<unsigned>(status));

    if (status != 200) {
        if (onError_) {
            onError_(RefusalText(status, response));
        }
        CloseConnection();
        return false;
    }
    sessionId_ = Utf8ToWide(ExtractJsonString(response, "session_id"));
    if (sessionId_.empty()) {
        CloseConnection();
        return false;
    }
    running_ = true;
    if (!StartThread(thread_, [this] { ExchangeLoop(); })) {
        running_ = false;
        DebugTrace(TEXT("[PROXY] Start: no thread for the session\n"));
        PostSessionStop(); // else it would stay open at the service
        CloseConnection();
        return false;
    }
    DebugTrace(TEXT("[PROXY] Session started: %s\n"), sessionId_.c_str());
    return true;
}

bool AzureTranslator::CheckKey(WideString& reason) {
    const bool openedHere = !hSession_ || !hConnect_;
    if (openedHere) {
        OpenConnection();
    }
    if (!hSession_ || !hConnect_) {
        reason = TEXT("connection_failed");
        return false;
    }
    std::string response;
    const DWORD status = HttpRequest(caller_, TEXT("GET"), KeyStatusPath(accessKey_), {}, response);
    if (openedHere) {
        CloseConnection();
    }
    if (status == 0) {
        reason = TEXT("connection_failed");
        return false;
    }
    if (status != 200) {
        reason = TEXT("server_error_") + Decimal(status);
        return false;
    }
    if (ExtractJsonBool(response, "valid")) {
        return true;
    }
    reason = Utf8ToWide(ExtractJsonString(response, "reason"));
    if (reason.empty()) {
        reason = TEXT("quota_exceeded");
    }
    return false;
}

void AzureTranslator::Stop() {
    if (!running_) {
        // Ended by the service, never started, or stopped before: nothing to tell the service.
        if (thread_.joinable()) {
            thread_.join();
        }
        CloseConnection();
        return;
    }
    DebugTrace(TEXT("[PROXY] Stop() called\n"));
    running_.exchange(false);
    caller_.GiveUp(); // what it would bring is dropped anyway
    SetEvent(wake_.get());
    if (thread_.joinable()) {
        thread_.join();
    }
    PostSessionStop();
    CloseConnection();
    DebugTrace(TEXT("[PROXY] Stop() complete\n"));
}

void AzureTranslator::PostSessionStop() {
    const std::string body = ServiceMessage({{"session_id", WideToUtf8(sessionId_)},
                                             {"access_key", WideToUtf8(accessKey_)},
                                             {"machine_id", WideToUtf8(machineId_)}});
    std::string response;
    HttpCaller lastWord; // the other one may have been given up
    HttpRequest(lastWord, TEXT("POST"), TEXT("/session/stop"), body, response);
}

void AzureTranslator::OpenConnection() {
    InternetHandle session = OpenInternet();
    if (!session) {
        return;
    }
    DWORD connectRetries = 1;
    WinHttpSetOption(session.get(), WINHTTP_OPTION_CONNECT_RETRIES, &connectRetries,
                     sizeof connectRetries);
    InternetHandle connection(WinHttpConnect(session.get(), host_.c_str(), port_, 0));
    if (!connection) {
        return;
    }
    hSession_ = std::move(session);
    hConnect_ = std::move(connection);
}

void AzureTranslator::CloseConnection() {
    hConnect_.Reset();
    hSession_.Reset();
}

DWORD AzureTranslator::HttpRequest(HttpCaller& caller, const WideString& method,
                                   const WideString& path, const std::string& body,
                                   std::string& response) {
    response.clear();
    if (!hSession_ || !hConnect_) {
        return 0;
    }
    InternetHandle request = OpenRequest(hConnect_, method.c_str(), path, https_);
    if (!request) {
        return 0;
    }
    const auto status = caller.Call(std::move(request), kTimeOuts, kAddedHeaders, body, response);
    if (!status) {
        CloseConnection();
        OpenConnection();
    }
    return status.value_or(0);
}

void AzureTranslator::GiveUp() {
    caller_.GiveUp();
}
