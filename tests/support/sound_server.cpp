// The server's process, and the connection that orders its modules about.
#include "support/sound_server.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pulse/pulseaudio.h>
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

// A property list with one entry, quoted once as an argument and once as a value.
std::string DescriptionProperty(const std::string& description) {
    return "\"device.description='" + description + "'\"";
}

} // namespace

// A connection whose loop turns only while one of its operations runs: it needs no thread, so the
// counts that tests make of threads are those of what they test.
class SoundServer::Control {
public:
    Control() : loop_(pa_mainloop_new()) {}
    ~Control() {
        context_.reset();
        loop_.reset();
    }
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    bool Connect(const std::string& address) {
        context_.reset(pa_context_new(pa_mainloop_get_api(loop_.get()), "sound server of a test"));
        if (pa_context_connect(context_.get(), address.c_str(), PA_CONTEXT_NOAUTOSPAWN, nullptr) <
            0) {
            return false;
        }
        return TurnUntil(
            [this] { return pa_context_get_state(context_.get()) == PA_CONTEXT_READY; });
    }

    Module Load(const std::string& name, const std::string& arguments) {
        Module module = PA_INVALID_INDEX;
        const auto onLoaded = [](pa_context* /*context*/, std::uint32_t index, void* user) {
            *static_cast<Module*>(user) = index;
        };
        const bool done = Finish(pa_context_load_module(context_.get(), name.c_str(),
                                                        arguments.c_str(), onLoaded, &module));
        if (!done || module == PA_INVALID_INDEX) {
            throw std::runtime_error("cannot load " + name + " " + arguments);
        }
        return module;
    }

    using Request = std::function<pa_operation*(pa_context*, pa_context_success_cb_t, void*)>;
    void Ask(const std::string& what, const Request& request) {
        bool accepted = false;
        const auto onDone = [](pa_context* /*context*/, int success, void* user) {
            *static_cast<bool*>(user) = success != 0;
        };
        if (!Finish(request(context_.get(), onDone, &accepted)) || !accepted) {
            throw std::runtime_error("cannot " + what);
        }
    }

private:
    struct FreeLoop {
        void operator()(pa_mainloop* loop) const { pa_mainloop_free(loop); }
    };
    struct CloseContext {
        void operator()(pa_context* context) const {
            pa_context_disconnect(context);
            pa_context_unref(context);
        }
    };
    struct AbandonOperation {
        void operator()(pa_operation* operation) const {
            pa_operation_cancel(operation);
            pa_operation_unref(operation);
        }
    };

    bool TurnUntil(const std::function<bool()>& done) {
        const Clock::time_point end = Clock::now() + kPatience;
        while (!done()) {
            if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(context_.get())) || Clock::now() > end) {
                return false;
            }
            constexpr int kTurnMicroseconds = 100'000;
            if (pa_mainloop_prepare(loop_.get(), kTurnMicroseconds) < 0 ||
                pa_mainloop_poll(loop_.get()) < 0 || pa_mainloop_dispatch(loop_.get()) < 0) {
                return false;
            }
        }
        return true;
    }

    bool Finish(pa_operation* begun) {
        const std::unique_ptr<pa_operation, AbandonOperation> operation(begun);
        return operation != nullptr && TurnUntil([&operation] {
                   return pa_operation_get_state(operation.get()) != PA_OPERATION_RUNNING;
               });
    }

    std::unique_ptr<pa_mainloop, FreeLoop> loop_;
    std::unique_ptr<pa_context, CloseContext> context_;
};

EnvironmentSetting::EnvironmentSetting(const std::string& name, const std::string& value)
    : name_(name) {
    if (const char* former = std::getenv(name.c_str()); former != nullptr) {
        former_ = former;
    }
    setenv(name.c_str(), value.c_str(), 1);
}

EnvironmentSetting::~EnvironmentSetting() {
    if (former_) {
        setenv(name_.c_str(), former_->c_str(), 1);
    } else {
        unsetenv(name_.c_str());
    }
}

SoundServer::SoundServer()
    : folder_(MakeFolder()), address_("unix:" + (folder_ / "socket").string()),
      serverSetting_("PULSE_SERVER", address_), cookieSetting_("PULSE_COOKIE", folder_ / "cookie") {
    StartProcess();
}

SoundServer::~SoundServer() {
    CleanUp();
}

void SoundServer::CleanUp() {
    control_.reset();
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
        control_ = std::make_unique<Control>();
        if (control_->Connect(address_)) {
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
    return control_->Load(name, arguments);
}

void SoundServer::UnloadModule(Module module) {
    control_->Ask("unload a module",
                  [module](pa_context* context, pa_context_success_cb_t onDone, void* user) {
                      return pa_context_unload_module(context, module, onDone, user);
                  });
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
        arguments += " sink_properties=" + DescriptionProperty(description);
    }
    return LoadModule("module-null-sink", arguments);
}

SoundServer::Microphone SoundServer::AddMicrophone(const std::string& name,
                                                   std::uint32_t sampleRate, unsigned channels,
                                                   const std::string& description) {
    const std::string speaker = name + "_speaker";
    Microphone microphone{};
    microphone.speaker = AddSink(speaker, sampleRate, channels);
    std::string arguments =
        "source_name=" + name + " master=" + speaker + ".monitor remix=no format=float32le" +
        " rate=" + std::to_string(sampleRate) + " channels=" + std::to_string(channels);
    if (!description.empty()) {
        arguments += " source_properties=" + DescriptionProperty(description);
    }
    microphone.source = LoadModule("module-remap-source", arguments);
    return microphone;
}

void SoundServer::SetDefaultSink(const std::string& name) {
    control_->Ask("set the default sink",
                  [&name](pa_context* context, pa_context_success_cb_t onDone, void* user) {
                      return pa_context_set_default_sink(context, name.c_str(), onDone, user);
                  });
}

void SoundServer::SetDefaultSource(const std::string& name) {
    control_->Ask("set the default source",
                  [&name](pa_context* context, pa_context_success_cb_t onDone, void* user) {
                      return pa_context_set_default_source(context, name.c_str(), onDone, user);
                  });
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
