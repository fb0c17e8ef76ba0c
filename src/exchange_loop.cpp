// The live path of a session: audio goes out in slices and results come back, one request at a
// time, on a thread of its own.
#include "azure_translator.h"
#include "base64.h"
#include "debug_trace.h"
#include "json_scanner.h"
#include "service_message.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace {

constexpr std::size_t kLargestSlice = 32768; // bytes: 1.024 s of audio
constexpr DWORD kPollPauseMs = 10;
constexpr DWORD kIdleThresholdMs = 100; // of poll pauses, until an exchange goes out without audio
constexpr DWORD kFailurePauseMs = 50;

WideString ExtractWide(const std::string& object, std::string_view key) {
    return Utf8ToWide(ExtractJsonString(object, key));
}

} // namespace

void AzureTranslator::PushAudio(const std::uint8_t* data, std::uint32_t bytes) {
    if (!running_) {
        return;
    }
    bool dropping = false;
    {
        const std::lock_guard lock(audioMutex_);
        dropping = audioBuffer_.Append(data, bytes);
    }
    SetEvent(wake_.get());
    if (dropping) {
        DebugTrace(TEXT("[PROXY] PushAudio: ten minutes of audio waiting, dropping the oldest\n"));
    }
}

// Sleeps until audio arrives or `longestMs` have passed; returns the time slept, rounded up to
// whole polls of the buffer. A thread that woke for each poll would keep the processor from resting
// through every silence.
DWORD AzureTranslator::PauseForAudio(DWORD longestMs) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    if (WaitForSingleObject(wake_.get(), longestMs) == WAIT_TIMEOUT) {
        return longestMs;
    }
    const auto waitedMs = static_cast<DWORD>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
    const DWORD polls = std::min(waitedMs / kPollPauseMs + 1, longestMs / kPollPauseMs);
    if (running_ && polls * kPollPauseMs > waitedMs) {
        Sleep(polls * kPollPauseMs - waitedMs);
    }
    return polls * kPollPauseMs;
}

void AzureTranslator::ExchangeLoop() {
    // None of these changes while the thread runs.
    const std::string sessionId = WideToUtf8(sessionId_);
    const std::string accessKey = WideToUtf8(accessKey_);
    const std::string machineId = WideToUtf8(machineId_);
    const std::string osVersion = WideToUtf8(osVersion_);
    const std::string clientVersion = WideToUtf8(clientVersion_);

    std::vector<std::uint8_t> slice;
    std::string response;
    DWORD idleMs = 0;
    while (running_) {
        {
            const std::lock_guard lock(audioMutex_);
            audioBuffer_.Take(slice, kLargestSlice);
        }
        if (slice.empty()) {
            idleMs += PauseForAudio(kIdleThresholdMs - idleMs);
            if (idleMs < kIdleThresholdMs) {
                continue;
            }
        }
        idleMs = 0;
        const std::string body =
            ServiceMessage({{"session_id", sessionId},
                            {"access_key", accessKey},
                            {"machine_id", machineId},
                            {"os_version", osVersion},
                            {"client_version", clientVersion},
                            {"audio_b64", Base64Encode(slice.data(), slice.size())}});
        const DWORD status =
            HttpRequest(caller_, TEXT("POST"), TEXT("/session/exchange"), body, response);
        if (!running_ || !HandleExchange(status, response)) {
            break;
        }
    }
}

// False when the service has ended the session.
bool AzureTranslator::HandleExchange(DWORD status, const std::string& response) {
    if (status == 403) {
        const WideString detail = ForbiddenDetail(response);
        DebugTrace(TEXT("[PROXY] ExchangeLoop 403 detail=%s → calling onError_ and setting ")
                       TEXT("running_=false\n"),
                   detail.c_str());
        EndByService(detail);
        DebugTrace(TEXT("[PROXY] ExchangeLoop exiting after 403\n"));
        return false;
    }
    if (status == 404) {
        DebugTrace(TEXT("[PROXY] ExchangeLoop 404 session_not_found\n"));
        EndByService(TEXT("session_not_found"));
        return false;
    }
    if (status == 200 && !response.empty()) {
        DispatchResults(response);
        return true;
    }
    Sleep(kFailurePauseMs);
    return true;
}

void AzureTranslator::EndByService(const WideString& error) {
    if (onError_) {
        onError_(error);
    }
    running_.exchange(false);
}

// Delivers every result of a response that was accepted, also when Stop comes in between.
void AzureTranslator::DispatchResults(const std::string& response) {
    for (const std::string& object : SplitJsonArray(response)) {
        TranslationResult result;
        result.original = ExtractWide(object, "original");
        result.translated = ExtractWide(object, "translated");
        result.isFinal = ExtractJsonBool(object, "is_final");
        result.sourceLang = ExtractWide(object, "source_lang");
        result.targetLang = ExtractWide(object, "target_lang");
        if (onResult_ && (!result.original.empty() || !result.translated.empty())) {
            onResult_(result);
        }
    }
}
