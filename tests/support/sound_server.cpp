// The server's process, and the command line that orders its modules about: it needs no thread of
// this process, so the counts that tests make of threads are those of what they test.
#include "support/sound_server.h"

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

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

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

SoundServer::SoundServer()
    : folder_(MakeFolder()), address_("unix:" + (folder_ / "socket").string()),
      serverSetting_("PULSE_SERVER", address_), cookieSetting_("PULSE_COOKIE", folder_ / "cookie") {
    StartProcess();
}

SoundServer::~SoundServer() {
    CleanUp();
}

void SoundServer::CleanUp() {
    Kill();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void SoundServer::StartProcess() {
    std::ofstream(folder_ / "script")
        << "load-module module-native-protocol-unix auth-anonymous=1 socket="
        << (folder_ / "socket").string() << '\n';
    const std::string home = folder_.string();
    // Everything that it could want to write goes into the folder, and there is no bus to ask.
    std::vector<std::string> environment{
        "PATH=/usr/bin:/bin",
        "HOME=" + home,
        "XDG_RUNTIME_DIR=" + home,
        "XDG_CONFIG_HOME=" + home,
        "PULSE_RUNTIME_PATH=" + home,
        "PULSE_STATE_PATH=" + home,
        "PULSE_COOKIE=" + home + "/cookie",
        "DBUS_SESSION_BUS_ADDRESS=unix:path=" + home + "/none",
        "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + home + "/none",
    };
    std::vector<std::string> command{"pulseaudio",          "-n",
                                     "--daemonize=no",      "--exit-idle-time=-1",
                                     "--use-pid-file=no",   "-F",
                                     home + "/script",      "--realtime=no",
                                     "--log-target=stderr", "--high-priority=no",
                                     "--disallow-exit=yes"};
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

    processId_ = fork();
    if (processId_ < 0) {
        processId_ = 0;
        throw std::runtime_error("cannot start a process");
    }
    if (processId_ == 0) {
        // In the child of a process that may have threads: system calls only.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (getppid() == parent && file >= 0 && dup2(file, STDOUT_FILENO) >= 0 &&
            dup2(file, STDERR_FILENO) >= 0) {
            execve("/usr/bin/pulseaudio", arguments.data(), variables.data());
        }
        _exit(127);
    }

    // The socket is made before the server listens on it, so only a connection tells.
    const Clock::time_point end = Clock::now() + kPatience;
    for (;;) {
        if (Ask("info")) {
            return;
        }
        const bool exited = waitpid(processId_, nullptr, WNOHANG) != 0;
        if (exited || Clock::now() > end) {
            const std::string said = Log();
            if (exited) {
                processId_ = 0;
            }
            CleanUp();
            throw std::runtime_error("the sound server does not start: " + said);
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

void SoundServer::SetDefaultSink(const std::string& name) {
    Command("set-default-sink " + name);
}

void SoundServer::SetDefaultSource(const std::string& name) {
    Command("set-default-source " + name);
}

void SoundServer::Freeze() {
    kill(processId_, SIGSTOP);
}

void SoundServer::Resume() {
    kill(processId_, SIGCONT);
}

void SoundServer::Kill() {
    if (processId_ == 0) {
        return;
    }
    kill(processId_, SIGKILL);
    waitpid(processId_, nullptr, 0);
    processId_ = 0;
}
