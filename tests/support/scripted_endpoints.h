// Audio endpoints that do as they are told: registered in the place of the system's device
// enumerator, they play packet scripts and fail where a test wants it. The same on every system.
#pragma once

#include "wide_text.h"

#include <windows.h>
#include <audioclient.h>
#include <mmdeviceapi.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct ScriptedPacket {
    std::vector<std::uint8_t> bytes;
    UINT32 frames = 0;
    DWORD flags = 0;
};

// A mix format of `bits` wide samples; floats when `isFloat`. Extensible, as systems deliver it.
WAVEFORMATEXTENSIBLE MixFormat(std::uint32_t sampleRate, std::uint16_t channels, std::uint16_t bits,
                               bool isFloat);

// One packet of 16-bit samples, `channels` to a frame.
ScriptedPacket Int16Packet(const std::vector<std::int16_t>& samples, std::uint16_t channels = 1);

// One endpoint. A test fills in the plain members before a start; the operations may be called at
// any time from any thread.
class ScriptedEndpoint {
public:
    WideString id;
    WideString name;
    EDataFlow flow = eRender;
    WAVEFORMATEXTENSIBLE format = MixFormat(16000, 1, 16, false);
    bool active = true;
    VARTYPE nameType = VT_LPWSTR;

    // Makes a platform call, named as on the platform, give this result from now on; S_OK heals it.
    void Fail(const std::string& call, HRESULT result);
    // Makes a platform call wait, as on a sound server that does not answer, until it is let go.
    void Hold(const std::string& call);
    void LetGo();
    // Waits until a held call has been made; false after ten seconds.
    bool WaitUntilHeld() const;
    // The scripted result of a call, which is noted in the log.
    HRESULT Called(const std::string& call);

    // Lets a packet arrive; signals the stream's event when it has one.
    void Push(ScriptedPacket packet);
    // The calls so far, in their order; packet calls are left out, being as many as time allows.
    std::vector<std::string> Calls() const;
    int CallsOf(const std::string& call) const;
    // Waits until every packet pushed so far has been released; false after ten seconds.
    bool WaitUntilDrained() const;
    // Waits until a call that was made to fail has failed; false after ten seconds.
    bool WaitUntilFailed(const std::string& call) const;
    // Streams that were started and not stopped again.
    int Running() const { return running_; }

private:
    friend class ScriptedClient;
    friend class ScriptedReader;

    template <typename Condition>
    bool WaitUntil(const Condition& condition) const;

    mutable std::mutex mutex_; // guards all that follows, and the event against being closed in use
    std::map<std::string, HRESULT> failures_;
    std::map<std::string, int> failed_; // how often
    std::string held_;                  // the call that waits
    int waiting_ = 0;                   // callers in it
    std::condition_variable letGo_;
    std::vector<std::string> calls_;
    std::deque<ScriptedPacket> packets_;
    HANDLE event_ = nullptr;
    std::atomic<int> running_{0};
};

// Registers itself for the enumerator's class for as long as it lives. COM is initialised by it.
class ScriptedEndpoints {
public:
    ScriptedEndpoints();
    ~ScriptedEndpoints();
    ScriptedEndpoints(const ScriptedEndpoints&) = delete;
    ScriptedEndpoints& operator=(const ScriptedEndpoints&) = delete;

    // The first one added for a flow is its default.
    ScriptedEndpoint& Add(const WideString& id, EDataFlow flow);
    std::vector<std::unique_ptr<ScriptedEndpoint>> endpoints;

    // Results of the calls that belong to no endpoint: "CoCreateInstance", "EnumAudioEndpoints",
    // "GetDefaultAudioEndpoint", "GetDevice", "Item".
    void Fail(const std::string& call, HRESULT result);
    HRESULT ResultOf(const std::string& call) const;

    // COM objects that the program still holds.
    static int LiveObjects();

private:
    mutable std::mutex mutex_; // guards failures_
    std::map<std::string, HRESULT> failures_;
    DWORD registration_ = 0;
};
