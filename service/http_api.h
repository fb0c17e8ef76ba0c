// The service's face: the four operations of the protocol over HTTP or HTTPS. Turns requests into
// calls of the rooms behind it and their answers into JSON; decides nothing itself.
#pragma once

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace service {

class Accounts;
class Sessions;

struct TlsFiles {
    std::filesystem::path certificate;
    std::filesystem::path key;
};

class HttpApi {
public:
    // The rooms outlive this one. `connections` is how many are served at the same time: one that
    // is kept alive holds a thread, also while its client is silent. Throws when the TLS files
    // cannot be used.
    HttpApi(Accounts& accounts, Sessions& sessions, const std::optional<TlsFiles>& tls,
            std::size_t connections);
    HttpApi(const HttpApi&) = delete;
    HttpApi& operator=(const HttpApi&) = delete;
    ~HttpApi();

    // Takes the port, any free one for 0, and gives its number; from here on clients can connect.
    // Throws when the port cannot be had.
    int Bind(const std::string& address, int port);

    // Serves until `Stop`; false when accepting clients has failed.
    bool Serve();

    // From another thread than `Serve`'s, which has been called or is about to be; cuts all
    // connections.
    void Stop();

private:
    void SetUpServer(std::size_t connections);
    void SetUpAnswers();

    void KeyStatus(const httplib::Request& request, httplib::Response& response);
    void SessionStart(const httplib::Request& request, httplib::Response& response);
    void SessionExchange(const httplib::Request& request, httplib::Response& response);
    void SessionStop(const httplib::Request& request, httplib::Response& response);

    Accounts& accounts_;
    Sessions& sessions_;
    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;
    std::atomic<bool> ended_ = false; // written by `Serve`'s thread, read by `Stop`'s
};

} // namespace service
