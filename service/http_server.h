// HTTP/1.1 for programs on any network: requests in, answers out, driven by events on one thread.
// A stranger's connection costs some kilobytes and no thread, what it sends is bounded while it is
// read, and everything ends. Knows no operation of the service.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace service {

struct TlsFiles {
    std::filesystem::path certificate;
    std::filesystem::path key;
};

struct HttpRequest {
    std::string method;
    std::string target; // as it came: nothing is decoded
    std::string body;
    std::string address; // the client's; of IPv6 the first half, which is one network's
};

struct HttpAnswer {
    int status = 200;
    const char* contentType = "text/plain; charset=utf-8";
    std::string body;
    // What the connection is kept for, if anything (a session's id): the newest connection of each
    // may stay idle longer, and is not closed to make room for others.
    std::string keptFor;
};

struct HttpLimits {
    std::size_t connections = 512;             // at the same time; another one closes an idle one
    std::size_t head = std::size_t{8} * 1024;  // bytes
    std::size_t body = std::size_t{64} * 1024; // bytes
    std::chrono::milliseconds request = std::chrono::seconds(10); // from first byte to last, and
                                                                  // for the answer again
    std::chrono::milliseconds idle = std::chrono::seconds(10);
    std::chrono::milliseconds keptIdle = std::chrono::seconds(20); // of a connection that is kept
};

struct HttpFigures {
    std::uint64_t requests = 0; // read whole and handed on
    std::uint64_t refused = 0;  // answered here: too large, not to be read
    std::uint64_t closed = 0;   // connections closed for their time or to make room
    std::uint64_t acceptFailures = 0;
    std::size_t connections = 0;
};

class HttpServer {
public:
    // Called once for each request, from any thread, at any time while the server lives.
    using Reply = std::function<void(HttpAnswer)>;
    // Called on the server's thread, so it must not block: it hands the work on.
    using Handler = std::function<void(HttpRequest, Reply)>;

    // Throws std::runtime_error when the TLS files cannot be used.
    HttpServer(const std::optional<TlsFiles>& tls, const HttpLimits& limits, Handler handler);
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;
    ~HttpServer();

    // Takes the port, any free one for 0, and gives its number; from here on clients can connect.
    // Throws std::runtime_error when the port cannot be had.
    int Bind(const std::string& address, int port);

    // Serves on this thread until `Stop`.
    void Serve();

    // The operations below are for any thread.
    void Stop();          // cuts all connections; also before `Serve`, which then returns at once
    void StopAccepting(); // those who are connected are served on
    HttpFigures Figures() const;

    // Gives up the port that was taken and takes this one. Throws like `Bind`, and then the former
    // one is taken again. Only while `Serve` runs.
    void Rebind(const std::string& address, int port);

    // New connections get this certificate; those that are open keep theirs. Throws like the
    // constructor, and then nothing has changed.
    void UseCertificate(const TlsFiles& tls);

private:
    class Core;
    std::unique_ptr<Core> core_;
};

} // namespace service
