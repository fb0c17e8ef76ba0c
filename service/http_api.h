// The service's face: the four operations of the protocol over HTTP or HTTPS, and what those who
// spread clients over several services ask for. Turns requests into
// calls of the rooms behind it and their answers into JSON; decides nothing itself.
#pragma once

#include "http_server.h"
#include "refusal.h"
#include "refused_keys.h"
#include "work_queue.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace service {

class Ledger;
class Sessions;

struct RefusalCount {
    const char* reason;
    std::uint64_t count;
};

class HttpApi {
public:
    // The rooms outlive this one. `sessionsAtOnce` is how many exchanges are worked on at the same
    // time. Throws when the TLS files cannot be used.
    HttpApi(Ledger& ledger, Sessions& sessions, const std::optional<TlsFiles>& tls,
            std::size_t sessionsAtOnce, const HttpLimits& limits = {});
    HttpApi(const HttpApi&) = delete;
    HttpApi& operator=(const HttpApi&) = delete;
    ~HttpApi() = default;

    // Takes the port, any free one for 0, and gives its number; from here on clients can connect.
    // Throws when the port cannot be had.
    int Bind(const std::string& address, int port) { return server_.Bind(address, port); }

    // Serves on this thread until `Stop`.
    void Serve() { server_.Serve(); }

    // The operations below are for any thread.
    void Rebind(const std::string& address, int port) { server_.Rebind(address, port); }
    void UseCertificate(const TlsFiles& tls) { server_.UseCertificate(tls); }
    void SetSessionsAtOnce(std::size_t count) { exchanges_.SetThreads(count); } // never fewer
    void StopAccepting() { server_.StopAccepting(); }
    void Stop() { server_.Stop(); } // answers what has been asked, and cuts all connections

    HttpFigures Figures() const { return server_.Figures(); }
    std::vector<RefusalCount> Refusals() const;
    void LogRefusedKeys() { refusedKeys_.LogAndForget(); } // those since the last call

private:
    using Operation = void (HttpApi::*)(const HttpRequest& request, const HttpServer::Reply& reply);
    struct Entry;

    void Route(HttpRequest request, HttpServer::Reply reply);

    // Each replies once, or throws.
    void KeyStatus(const HttpRequest& request, const HttpServer::Reply& reply);
    void SessionStart(const HttpRequest& request, const HttpServer::Reply& reply);
    void SessionExchange(const HttpRequest& request, const HttpServer::Reply& reply);
    void SessionStop(const HttpRequest& request, const HttpServer::Reply& reply);
    void Health(const HttpRequest& request, const HttpServer::Reply& reply);

    HttpAnswer Refuse(Refusal refusal, const HttpRequest& request);
    void Count(Refusal refusal, const HttpRequest& request);

    Ledger& ledger_;
    Sessions& sessions_;
    RefusedKeys refusedKeys_;
    std::array<std::atomic<std::uint64_t>, kRefusals> refusals_{}; // by reason
    HttpServer server_;
    // Lanes, so that none of these waits behind another: what costs nothing, loading a decoder,
    // decoding as people speak, and decoding of audio that comes faster than anybody speaks.
    WorkQueue desk_;
    WorkQueue starts_;
    WorkQueue exchanges_;
    WorkQueue ahead_;
};

} // namespace service
