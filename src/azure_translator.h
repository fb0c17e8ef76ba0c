// The client of the translation service: one session over HTTPS, audio out and results back. Knows
// the wire protocol and the platform's HTTP; nothing of windows and devices.
#pragma once

#include "audio_queue.h"
#include "http_caller.h"
#include "internet.h"
#include "owner.h"
#include "wide_text.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

// One result of the service.
struct TranslationResult {
    WideString original;   // recognised in the spoken language
    WideString translated; // its translation
    bool isFinal = false;  // complete; a partial is replaced by the next result
    WideString sourceLang; // code of the spoken language
    WideString targetLang; // code of the translation's language
};

// Serves one session: Configure, Start, Stop, in this order and each once.
//
// Configure, Start, CheckKey and Stop are called one after the other, Start and those after it on
// a thread that may block: each waits for the service. PushAudio is called by capture threads at
// any time, GiveUp by any thread. The callbacks run on the exchange thread, but for the errors of
// Start, which come from within it; they must not block for long and must not call Stop, which
// waits for that thread.
class AzureTranslator {
public:
    using ResultCallback = std::function<void(const TranslationResult&)>;
    using ErrorCallback = std::function<void(const WideString&)>;

    AzureTranslator();
    ~AzureTranslator();
    AzureTranslator(const AzureTranslator&) = delete;
    AzureTranslator& operator=(const AzureTranslator&) = delete;

    // No network work. Either callback may be empty.
    void Configure(const WideString& accessKey, const WideString& langA, const WideString& langATgt,
                   const WideString& langB, const WideString& langBTgt, ResultCallback onResult,
                   ErrorCallback onError);

    // Opens a session. True when it runs; when not, the error callback may have told why.
    bool Start();

    // Asks the service about the access key, while no session runs. When it is not accepted,
    // `reason` becomes an error word; else `reason` stays as it is.
    bool CheckKey(WideString& reason);

    // Ends the session, if one runs: gives the request in flight up and tells the service, which is
    // what it waits for. Harmless at any other time.
    void Stop();

    // Nobody wants this session any more: whatever waits for the service fails at once, and so does
    // whatever would, but for the word to the service that a session which runs is over. Never
    // waits. Stop is to follow.
    void GiveUp();

    // Takes a copy of `bytes` bytes of service audio; dropped when no session runs. Never waits for
    // the network. Beyond ten minutes of waiting audio the oldest goes.
    void PushAudio(const std::uint8_t* data, std::uint32_t bytes);

private:
    void ExchangeLoop();
    DWORD PauseForAudio(DWORD longestMs);
    bool HandleExchange(DWORD status, const std::string& response);
    void DispatchResults(const std::string& response);
    void EndByService(const WideString& error);
    void PostSessionStop();

    void OpenConnection();
    void CloseConnection();
    DWORD HttpRequest(HttpCaller& caller, const WideString& method, const WideString& path,
                      const std::string& body, std::string& response);

    // Fixed from Configure on.
    WideString host_;
    std::uint16_t port_ = 443;
    bool https_ = true;

    // Both null or both valid. The connection stays up between requests. Used by one thread at a
    // time: the caller of Start, then the exchange thread, then whoever joined it.
    InternetHandle hSession_;
    InternetHandle hConnect_;
    HttpCaller caller_; // for all requests but the last word

    // Fixed from Configure on, sessionId_ from Start on.
    WideString accessKey_;
    WideString machineId_;
    WideString osVersion_;
    WideString clientVersion_;
    WideString langA_;
    WideString langATgt_;
    WideString langB_;
    WideString langBTgt_;
    ResultCallback onResult_;
    ErrorCallback onError_;
    WideString sessionId_;

    std::atomic<bool> running_{false}; // a session is live; the one signal between the threads
    std::mutex audioMutex_;  // guards audioBuffer_; held for one copy, never for a request
    AudioQueue audioBuffer_; // not yet sent, oldest first
    // Set when audio has come or running_ has fallen.
    const EventHandle wake_{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    std::thread thread_; // runs ExchangeLoop
};
