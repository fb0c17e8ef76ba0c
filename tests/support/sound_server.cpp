// The server's process, and the command line that orders its modules about: it needs no thread of
// this process, so the counts that tests make of threads are those of what they test.
#include "support/sound_server.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience{10};

std::filesystem::path MakeFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "sound-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no folder for the sound server");
    }
    return pattern;
}

// As one word of a shell's command.
std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char character : text) {
        quoted += character == '\'' ? "'\\''" : std::string(1, character);
    }
    return quoted + "'";
}

// What the server answers to a command, or nothing when it refuses.
std::optional<std::string> Ask(const std::string& command) {
    FILE* const pipe = popen(("pactl " + command + " 2>/dev/null").c_str(), "re");
    if (pipe == nullptr) {
        return std::nullopt;
    }
    std::string answer;
    for (int character = 0; (character = std::fgetc(pipe)) != EOF;) {
        answer += static_cast<char>(character);
    }
    return pclose(pipe) == 0 ? std::optional(answer) : std::nullopt;
}

std::string Command(const std::string& command) {
    const auto answer = Ask(command);
    if (!answer) {
        throw std::runtime_error("the sound server refuses: " + command);
    }
    return *answer;
}

} // namespace

SoundServer::SoundServer(Kind kind)
    : kind_(kind), folder_(MakeFolder()),
      address_("unix:" + (folder_ / (kind == Kind::PipeWire ? "native" : "socket")).string()),
      serverSetting_("PULSE_SERVER", address_), cookieSetting_("PULSE_COOKIE", folder_ / "cookie") {
    if (kind == Kind::PipeWire) {
        StartPipeWire();
    } else {
        StartPulseAudio();
    }
    // A socket is made before its server listens on it, so only a connection tells.
    WaitFor("sound server", [] { return Ask("info").has_value(); });
}

SoundServer::~SoundServer() {
    CleanUp();
}

void SoundServer::CleanUp() {
    Kill();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void SoundServer::StartPulseAudio() {
    std::ofstream(folder_ / "script")
        << "load-module module-native-protocol-unix auth-anonymous=1 socket="
        << (folder_ / "socket").string() << '\n';
    StartProcess({"/usr/bin/pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1",
                  "--use-pid-file=no", "-F", folder_ / "script", "--realtime=no",
                  "--log-target=stderr", "--high-priority=no", "--disallow-exit=yes"});
}

// The session manager links nothing without a bus.
void SoundServer::StartPipeWire() {
    const std::filesystem::path settings = folder_ / "wireplumber/main.lua.d";
    std::filesystem::create_directories(settings);
    std::ofstream(settings / "51-no-real-devices.lua") << "alsa_monitor.enabled = false\n"
                                                          "v4l2_monitor.enabled = false\n"
                                                          "libcamera_monitor.enabled = false\n";
    const auto exists = [this](const char* name) {
        return [path = folder_ / name] { return std::filesystem::exists(path); };
    };
    StartProcess({"/usr/bin/dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog",
                  "--address=unix:path=" + (folder_ / "bus").string()});
    WaitFor("bus", exists("bus"));
    StartProcess({"/usr/bin/pipewire"});
    WaitFor("PipeWire", exists("pipewire-0"));
    StartProcess({"/usr/bin/wireplumber"});
    StartProcess({"/usr/bin/pipewire-pulse"});
}

void SoundServer::StartProcess(std::vector<std::string> command) {
    const std::string home = folder_.string();
    // Everything that it could want to write goes into the folder, and there is no bus to ask but
    // one there.
    std::vector<std::string> environment{
        "PATH=/usr/bin:/bin",
        "HOME=" + home,
        "XDG_RUNTIME_DIR=" + home,
        "XDG_CONFIG_HOME=" + home,
        "XDG_STATE_HOME=" + home,
        "PULSE_RUNTIME_PATH=" + home,
        "PULSE_STATE_PATH=" + home,
        "PULSE_COOKIE=" + home + "/cookie",
        "DBUS_SESSION_BUS_ADDRESS=unix:path=" + home + "/bus",
        "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + home + "/none",
    };
    const auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> result;
        result.reserve(texts.size() + 1);
        for (std::string& text : texts) {
            result.push_back(text.data());
        }
        result.push_back(nullptr);
        return result;
    };
    const std::vector<char*> arguments = pointers(command);
    const std::vector<char*> variables = pointers(environment);
    const std::string log = home + "/log";
    const pid_t parent = getpid();

    const pid_t process = fork();
    if (process < 0) {
        throw std::runtime_error("cannot start a process");
    }
    if (process == 0) {
        // In the child of a process that may have threads: system calls only.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        if (getppid() == parent && file >= 0 && dup2(file, STDOUT_FILENO) >= 0 &&
            dup2(file, STDERR_FILENO) >= 0) {
            execve(arguments[0], arguments.data(), variables.data());
        }
        _exit(127);
    }
    processes_.push_back(process);
}

void SoundServer::WaitFor(const char* what, const std::function<bool()>& isThere) {
    const Clock::time_point end = Clock::now() + kPatience;
    while (!isThere()) {
        int state = 0;
        const bool exited = waitpid(processes_.back(), &state, WNOHANG) != 0;
        if (exited || Clock::now() > end) {
            const std::string said = Log();
            if (exited) {
                processes_.pop_back();
            }
            CleanUp();
            throw std::runtime_error(std::string("the ") + what + " does not start: " + said);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

std::string SoundServer::Log() const {
    std::ifstream file(folder_ / "log");
    return {std::istreambuf_iterator<char>(file), {}};
}

SoundServer::Module SoundServer::LoadModule(const std::string& name, const std::string& arguments) {
    return static_cast<Module>(
        std::stoul(Command("load-module " + name + " " + Quoted(arguments))));
}

void SoundServer::UnloadModule(Module module) {
    Command("unload-module " + std::to_string(module));
}

SoundServer::Module SoundServer::AddSink(const std::string& name, std::uint32_t sampleRate,
                                         unsigned channels, const std::string& description,
                                         const std::string& sampleFormat) {
    // Left as it is, an idle null sink works two seconds ahead and sleeps for as long, and whoever
    // begins to listen waits that out. Without rewinds it never works more than 50 ms ahead.
    std::string arguments = "norewinds=1 sink_name=" + name + " format=" + sampleFormat +
                            " rate=" + std::to_string(sampleRate) +
                            " channels=" + std::to_string(channels);
    if (!description.empty()) {
        arguments += " sink_properties=\"device.description='" + description + "'\"";
    }
    return LoadModule("module-null-sink", arguments);
}

SoundServer::Module SoundServer::AddMicrophone(const std::string& name, std::uint32_t sampleRate,
                                               unsigned channels) {
    const std::string speaker = name + "_speaker";
    const Module module = AddSink(speaker, sampleRate, channels);
    LoadModule("module-remap-source",
               "source_name=" + name + " master=" + speaker +
                   ".monitor remix=no format=float32le rate=" + std::to_string(sampleRate) +
                   " channels=" + std::to_string(channels));
    return module;
}

bool SoundServer::HasSink(const std::string& name) const {
    return Command("list short sinks").find("\t" + name + "\t") != std::string::npos;
}

void SoundServer::SetDefaultSink(const std::string& name) {
    Command("set-default-sink " + name);
}

void SoundServer::SetDefaultSource(const std::string& name) {
    Command("set-default-source " + name);
}

void SoundServer::Signal(int signal) {
    for (const pid_t process : processes_) {
        kill(process, signal);
    }
}

void SoundServer::Freeze() {
    Signal(SIGSTOP);
}

void SoundServer::Resume() {
    Signal(SIGCONT);
}

void SoundServer::Kill() {
    Signal(SIGKILL);
    for (const pid_t process : processes_) {
        waitpid(process, nullptr, 0);
    }
    processes_.clear();
}
