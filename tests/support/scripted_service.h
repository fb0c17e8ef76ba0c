// A translation service that does as it is told: an HTTP server on loopback whose answers a test
// scripts and whose requests it reads back byte for byte. Knows HTTP and TLS, nothing of the
// program.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One request as it came in.
struct ScriptedRequest {
    std::string method;
    std::string target;               // as in the request line, not decoded
    std::vector<std::string> headers; // "Name: value" lines in their order, without line ends
    std::string body;

    // The value of a header; empty when it is missing.
    std::string Header(std::string_view name) const;
};

// What goes back.
struct ScriptedAnswer {
    enum class Kind {
        Normal,    // status and body, and the connection stays open
        Raw,       // `body` is written as it stands, head included, then the connection closes
        CloseOnly, // the connection closes without a byte
    };
    Kind kind = Kind::Normal;
    int status = 200;
    std::string body = {};
    std::string headers = {};           // further header lines, each with its CR LF
    std::chrono::milliseconds delay{0}; // before the answer is written
    std::chrono::milliseconds pace{0};  // before each byte: of the body, or of all that is Raw
};

// Files of a server certificate and its key, PEM.
struct ServerCertificate {
    std::string certificateFile;
    std::string keyFile;
};

// The server and its threads. All operations may be called from any thread; the handler runs on
// the thread of its connection.
class ScriptedService {
public:
    using Handler = std::function<ScriptedAnswer(const ScriptedRequest&)>;

    // Listens on 127.0.0.1 on a free port, in plain HTTP or with TLS. Every request gets a 200 with
    // "[]" until told otherwise. TLS is there on Linux only.
    explicit ScriptedService(std::optional<ServerCertificate> certificate = std::nullopt);
    ~ScriptedService();
    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;

    std::uint16_t Port() const;
    std::string Url() const; // "http://127.0.0.1:<port>", or https with a certificate

    void SetHandler(Handler handler);

    // All requests so far, in the order in which they were read.
    std::vector<ScriptedRequest> Requests() const;
    // Waits until `count` requests have been read; false after `limit`.
    bool WaitForRequests(std::size_t count,
                         std::chrono::milliseconds limit = std::chrono::seconds(10)) const;
    int ConnectionsAccepted() const;
    int HandshakesDone() const; // TLS handshakes that succeeded

    // Closes the listener and every connection; a later Start listens on the same port again.
    void Stop();
    void Start();

private:
    struct State;
    std::unique_ptr<State> state_;
};
