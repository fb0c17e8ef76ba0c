// A PostgreSQL of the tests' own: on a socket in a folder of its own, reached by nobody else, gone
// with them. And a database in it for each test.
#pragma once

#include "child_process.h"
#include "file_descriptor.h"
#include "scratch_folder.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace service {

class PrivatePostgres {
public:
    PrivatePostgres() {
        GiveFolder();
        Run({"initdb", "-D", Data(), "-U", "kelvarin", "-A", "trust", "-E", "UTF8", "--no-locale",
             "--no-sync"});
        Start();
    }

    PrivatePostgres(const PrivatePostgres&) = delete;
    PrivatePostgres& operator=(const PrivatePostgres&) = delete;
    ~PrivatePostgres() { Stop(); }

    // One for all tests of this process, as it takes a second to make. They leave it running.
    static PrivatePostgres& Shared() {
        static PrivatePostgres server;
        return server;
    }

    // The URL of a new, empty database.
    std::string MakeDatabase() {
        const std::string name = "test" + std::to_string(++databases_);
        Run({"psql", "-qX", "-c", "CREATE DATABASE " + name, Url("postgres")});
        return Url(name);
    }

    // Returns when it takes connections.
    void Start() {
        server_.emplace(
            AsItsUser({"postgres", "-D", Data(), "-c", "listen_addresses=", "-c",
                       "unix_socket_directories=" + folder_.Path().string(), "-c", "fsync=off"}),
            null_.Get(), null_.Get());
        for (int tries = 0; tries < 600; ++tries) {
            std::ifstream file(Data() + "/postmaster.pid");
            for (std::string line; std::getline(file, line);) {
                if (line.starts_with("ready")) {
                    return;
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        throw std::runtime_error("the database does not start");
    }

    // As an administrator stops it for a restart: all connections are cut.
    void Stop() {
        if (!server_) {
            return;
        }
        ::kill(server_->Id(), SIGINT);
        siginfo_t info{};
        ::waitid(P_PID, static_cast<id_t>(server_->Id()), &info, WEXITED | WNOWAIT);
        server_.reset();
    }

    void Execute(const std::string& url, const std::string& statement) const {
        Run({"psql", "-qX", "-c", statement, url});
    }

private:
    std::string Url(const std::string& database) const {
        return "postgresql:///" + database + "?user=kelvarin&host=" + folder_.Path().string();
    }
    std::string Data() const { return folder_ / "data"; }

    // It does not run as root.
    void GiveFolder() {
        if (::geteuid() != 0) {
            return;
        }
        const passwd* const user = ::getpwnam("postgres");
        if (user == nullptr || ::chown(folder_.Path().c_str(), user->pw_uid, user->pw_gid) != 0) {
            throw std::runtime_error("there is no user for the database");
        }
    }

    static std::vector<std::string> AsItsUser(std::vector<std::string> words) {
        for (const auto& entry : std::filesystem::directory_iterator("/usr/lib/postgresql")) {
            const std::filesystem::path program = entry.path() / "bin" / words[0];
            if (std::filesystem::exists(program)) {
                words[0] = program;
            }
        }
        std::vector<std::string> before = {"setpriv", "--pdeathsig=INT"};
        if (::geteuid() == 0) {
            before.insert(before.end(), {"--reuid=postgres", "--regid=postgres", "--clear-groups"});
        }
        words.insert(words.begin(), before.begin(), before.end());
        return words;
    }

    void Run(const std::vector<std::string>& words) const {
        const ChildProcess run(AsItsUser(words), null_.Get(), null_.Get());
        siginfo_t info{};
        ::waitid(P_PID, static_cast<id_t>(run.Id()), &info, WEXITED | WNOWAIT);
        if (info.si_code != CLD_EXITED || info.si_status != 0) {
            throw std::runtime_error(words[0] + " has failed");
        }
    }

    const ScratchFolder folder_;
    const FileDescriptor null_{::open("/dev/null", O_RDWR | O_CLOEXEC)};
    std::optional<ChildProcess> server_;
    int databases_ = 0;
};

} // namespace service
