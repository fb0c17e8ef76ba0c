// A private sound server for tests: its own sockets, folder and settings, no real devices. Knows
// the servers' processes and modules; nothing of the program.
#pragma once

#include "support/environment_setting.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

// Starts a server and makes it the process's own for as long as the object lives (PULSE_SERVER and
// PULSE_COOKIE), so it is made before the threads that use sound and outlives them; one at a time.
// Operations come from one thread and throw std::runtime_error when the server refuses or is gone.
// The server ends with the thread that made the object, should that die first.
class SoundServer {
public:
    using Module = std::uint32_t;
    // PipeWire with its session manager and its PulseAudio server, or PulseAudio itself.
    enum class Kind { PulseAudio, PipeWire };

    explicit SoundServer(Kind kind = Kind::PulseAudio);
    ~SoundServer();
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    Module LoadModule(const std::string& name, const std::string& arguments);
    void UnloadModule(Module module);

    // A sink that plays to nowhere. `sampleFormat` as the server spells it. What the sink plays is
    // heard at its monitor, "<name>.monitor", to the last bit when player and reader keep to its
    // format. A description has no quotation marks; an empty one leaves the server's own.
    Module AddSink(const std::string& name, std::uint32_t sampleRate, unsigned channels,
                   const std::string& description = {},
                   const std::string& sampleFormat = "float32le");

    // A microphone that hears whatever is played to the sink "<name>_speaker", which is returned
    // and takes the microphone along when it goes.
    Module AddMicrophone(const std::string& name, std::uint32_t sampleRate, unsigned channels);

    bool HasSink(const std::string& name) const;
    void SetDefaultSink(const std::string& name);
    void SetDefaultSource(const std::string& name);

    // A server that is there and does not answer; Resume or Kill before the end.
    void Freeze();
    void Resume();
    // No chance to say goodbye to anyone.
    void Kill();

private:
    void StartPulseAudio();
    void StartPipeWire();
    void StartProcess(std::vector<std::string> command);
    void WaitFor(const char* what, const std::function<bool()>& isThere);
    void Signal(int signal);
    void CleanUp();
    std::string Log() const;

    const Kind kind_;
    const std::filesystem::path folder_;
    const std::string address_;
    const EnvironmentSetting serverSetting_;
    const EnvironmentSetting cookieSetting_; // else the library makes one in the user's home
    std::vector<pid_t> processes_;           // in the order of their start
};
