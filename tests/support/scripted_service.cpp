#include "scripted_service.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <list>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#endif

namespace {

// ---- What differs between the systems ----------------------------------------------------------

#ifdef _WIN32
using RawSocket = SOCKET;
constexpr RawSocket kNoSocket = INVALID_SOCKET;
constexpr int kSendFlags = 0;

void CloseRaw(RawSocket socket) {
    closesocket(socket);
}

void PrepareSockets() {
    static const bool started = [] {
        WSADATA unused;
        return WSAStartup(MAKEWORD(2, 2), &unused) == 0;
    }();
    if (!started) {
        throw std::runtime_error("scripted service: no sockets");
    }
}

void PrepareThread() {}
#else
using RawSocket = int;
constexpr RawSocket kNoSocket = -1;
constexpr int kSendFlags = MSG_NOSIGNAL;

void CloseRaw(RawSocket socket) {
    close(socket);
}
void PrepareSockets() {}

// A write of TLS to a client that left raises SIGPIPE. Blocked on the service's own threads only,
// so that the program under test stays as vulnerable as it is.
void PrepareThread() {
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
}
#endif

// Owns a socket.
class Socket {
public:
    explicit Socket(RawSocket socket = kNoSocket) : socket_(socket) {}
    Socket(Socket&& other) noexcept : socket_(std::exchange(other.socket_, kNoSocket)) {}
    Socket& operator=(Socket&& other) noexcept {
        std::swap(socket_, other.socket_);
        return *this;
    }
    ~Socket() { Close(); }

    RawSocket Get() const { return socket_; }
    bool IsOpen() const { return socket_ != kNoSocket; }
    // Wakes the thread that waits on it.
    void Interrupt() {
#ifdef _WIN32
        Close(); // shutdown does not always end a receive under Wine
#else
        if (IsOpen()) {
            shutdown(socket_, SHUT_RDWR);
        }
#endif
    }
    void Close() {
        if (IsOpen()) {
            CloseRaw(std::exchange(socket_, kNoSocket));
        }
    }

private:
    RawSocket socket_;
};

void SetOption(const Socket& socket, int level, int option) {
    const int on = 1;
    setsockopt(socket.Get(), level, option, reinterpret_cast<const char*>(&on), sizeof on);
}

sockaddr_in LoopbackAddress(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// ---- TLS ---------------------------------------------------------------------------------------

#ifdef _WIN32
struct TlsContext {};
using TlsContextHandle = std::unique_ptr<TlsContext>;

TlsContextHandle MakeTlsContext(const ServerCertificate&) {
    throw std::runtime_error("scripted service: TLS is there on Linux only");
}
#else
struct TlsContextFree {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using TlsContextHandle = std::unique_ptr<SSL_CTX, TlsContextFree>;

struct TlsFree {
    void operator()(SSL* tls) const { SSL_free(tls); }
};
using TlsHandle = std::unique_ptr<SSL, TlsFree>;

TlsContextHandle MakeTlsContext(const ServerCertificate& certificate) {
    TlsContextHandle context(SSL_CTX_new(TLS_server_method()));
    const bool isComplete =
        context &&
        SSL_CTX_use_certificate_chain_file(context.get(), certificate.certificateFile.c_str()) ==
            1 &&
        SSL_CTX_use_PrivateKey_file(context.get(), certificate.keyFile.c_str(), SSL_FILETYPE_PEM) ==
            1;
    if (!isComplete) {
        throw std::runtime_error("scripted service: certificate cannot be used");
    }
    return context;
}
#endif

// Bytes to and from one client, plain or through TLS. Used by its connection's thread alone.
class Stream {
public:
    explicit Stream(RawSocket socket) : socket_(socket) {}

#ifdef _WIN32
    bool Handshake(const TlsContext*) {
        return true;
    }
    void SayGoodbye() {}
#else
    bool Handshake(SSL_CTX* context) {
        if (!context) {
            return true;
        }
        tls_.reset(SSL_new(context));
        return tls_ && SSL_set_fd(tls_.get(), socket_) == 1 && SSL_accept(tls_.get()) == 1;
    }
    void SayGoodbye() {
        if (tls_) {
            SSL_shutdown(tls_.get());
        }
    }
#endif

    // Appends what comes next; false when nothing more will.
    bool ReadMore(std::string& text) {
        std::array<char, 65'536> buffer;
        const auto count = ReadSome(buffer.data(), static_cast<int>(buffer.size()));
        if (count <= 0) {
            return false;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
        return true;
    }

    bool Write(std::string_view text) {
        while (!text.empty()) {
            const auto count = WriteSome(text.data(), static_cast<int>(text.size()));
            if (count <= 0) {
                return false;
            }
            text.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

private:
#ifdef _WIN32
    int ReadSome(char* buffer, int room) {
        return recv(socket_, buffer, room, 0);
    }
    int WriteSome(const char* data, int bytes) {
        return send(socket_, data, bytes, kSendFlags);
    }
#else
    std::ptrdiff_t ReadSome(char* buffer, int room) {
        return tls_ ? SSL_read(tls_.get(), buffer, room)
                    : recv(socket_, buffer, static_cast<std::size_t>(room), 0);
    }
    std::ptrdiff_t WriteSome(const char* data, int bytes) {
        return tls_ ? SSL_write(tls_.get(), data, bytes)
                    : send(socket_, data, static_cast<std::size_t>(bytes), kSendFlags);
    }

    TlsHandle tls_;
#endif
    RawSocket socket_;
};

// ---- HTTP --------------------------------------------------------------------------------------

std::string_view TakeLine(std::string_view& text) {
    const std::size_t end = text.find("\r\n");
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
    return line;
}

ScriptedRequest ParseHead(std::string_view head) {
    ScriptedRequest request;
    const std::string_view requestLine = TakeLine(head);
    const std::size_t methodEnd = std::min(requestLine.find(' '), requestLine.size());
    const std::size_t targetEnd = std::min(requestLine.rfind(' '), requestLine.size());
    request.method = requestLine.substr(0, methodEnd);
    request.target = requestLine.substr(methodEnd, targetEnd - methodEnd);
    request.target.erase(0, 1); // the space
    while (!head.empty()) {
        request.headers.emplace_back(TakeLine(head));
    }
    return request;
}

// The next request of a connection; `pending` keeps what came behind it.
std::optional<ScriptedRequest> ReadRequest(Stream& stream, std::string& pending) {
    constexpr std::string_view kHeadEnd = "\r\n\r\n";
    std::size_t headEnd = 0;
    while ((headEnd = pending.find(kHeadEnd)) == std::string::npos) {
        if (!stream.ReadMore(pending)) {
            return std::nullopt;
        }
    }
    ScriptedRequest request = ParseHead(std::string_view(pending).substr(0, headEnd));
    pending.erase(0, headEnd + kHeadEnd.size());

    const std::string length = request.Header("Content-Length");
    const std::size_t bodyBytes = length.empty() ? 0 : std::stoull(length);
    while (pending.size() < bodyBytes) {
        if (!stream.ReadMore(pending)) {
            return std::nullopt;
        }
    }
    request.body = pending.substr(0, bodyBytes);
    pending.erase(0, bodyBytes);
    return request;
}

std::string NormalHead(const ScriptedAnswer& answer) {
    return "HTTP/1.1 " + std::to_string(answer.status) +
           " Scripted\r\nContent-Type: application/json\r\n" + answer.headers +
           "Content-Length: " + std::to_string(answer.body.size()) + "\r\n\r\n";
}

} // namespace

std::string ScriptedRequest::Header(std::string_view name) const {
    const std::string begin = std::string(name) + ": ";
    const auto line = std::find_if(headers.begin(), headers.end(), [&begin](const auto& header) {
        return header.starts_with(begin);
    });
    return line == headers.end() ? "" : line->substr(begin.size());
}

// ---- The service -------------------------------------------------------------------------------

struct ScriptedService::State {
    // One accepted connection. The socket is closed by its thread, under the mutex, so that Stop
    // never shuts down a number that has been given to something else.
    struct Client {
        Socket socket;
        std::thread thread;
    };

    void Listen();
    void AcceptClients();
    void WakeAcceptor() const;
    void Serve(Client& client);
    void Converse(Stream& stream);
    bool Answer(Stream& stream, const ScriptedAnswer& answer);
    bool WriteBody(Stream& stream, const std::string& head, const ScriptedAnswer& answer);
    bool Wait(std::chrono::milliseconds time);

    TlsContextHandle tls;
    std::uint16_t port = 0; // 0 until the first Listen
    Socket listener;
    std::thread acceptor;

    mutable std::mutex mutex; // guards what follows; no input, output or handler runs under it
    mutable std::condition_variable changed;
    bool isStopping = false;
    Handler handler;
    std::vector<ScriptedRequest> requests;
    std::list<Client> clients;
    int accepted = 0;
    int handshakes = 0;
};

void ScriptedService::State::Listen() {
    listener = Socket(socket(AF_INET, SOCK_STREAM, 0));
    SetOption(listener, SOL_SOCKET, SO_REUSEADDR); // the same port again right after a stop
    sockaddr_in address = LoopbackAddress(port);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener.Get(), generic, sizeof address) != 0 || listen(listener.Get(), 64) != 0 ||
        getsockname(listener.Get(), generic, &size) != 0) {
        throw std::runtime_error("scripted service: cannot listen");
    }
    port = ntohs(address.sin_port);
}

// By a connection of its own: the one way that works on every system.
void ScriptedService::State::WakeAcceptor() const {
    const Socket visitor(socket(AF_INET, SOCK_STREAM, 0));
    const sockaddr_in address = LoopbackAddress(port);
    (void)connect(visitor.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

void ScriptedService::State::AcceptClients() {
    PrepareThread();
    while (true) {
        Socket socket(accept(listener.Get(), nullptr, nullptr));
        const std::scoped_lock lock(mutex);
        if (isStopping || !socket.IsOpen()) {
            return;
        }
        SetOption(socket, IPPROTO_TCP, TCP_NODELAY);
        Client& client = clients.emplace_back();
        client.socket = std::move(socket);
        client.thread = std::thread([this, &client] { Serve(client); });
        ++accepted;
    }
}

void ScriptedService::State::Serve(Client& client) {
    PrepareThread();
    RawSocket socket = kNoSocket;
    {
        const std::scoped_lock lock(mutex);
        socket = client.socket.Get();
    }
    {
        Stream stream(socket);
        if (stream.Handshake(tls.get())) {
            if (tls) {
                const std::scoped_lock lock(mutex);
                ++handshakes;
            }
            Converse(stream);
        }
    }
    const std::scoped_lock lock(mutex);
    client.socket.Close();
}

void ScriptedService::State::Converse(Stream& stream) {
    std::string pending;
    while (auto request = ReadRequest(stream, pending)) {
        Handler current;
        {
            const std::scoped_lock lock(mutex);
            requests.push_back(*request);
            current = handler;
        }
        changed.notify_all();
        if (!Answer(stream, current ? current(*request) : ScriptedAnswer{.body = "[]"})) {
            return;
        }
    }
}

// False when the connection is over.
bool ScriptedService::State::Answer(Stream& stream, const ScriptedAnswer& answer) {
    if (!Wait(answer.delay)) {
        return false;
    }
    switch (answer.kind) {
    case ScriptedAnswer::Kind::Normal:
        return WriteBody(stream, NormalHead(answer), answer);
    case ScriptedAnswer::Kind::Raw:
        WriteBody(stream, "", answer);
        stream.SayGoodbye();
        return false;
    case ScriptedAnswer::Kind::CloseOnly:
        return false;
    }
    return false;
}

bool ScriptedService::State::WriteBody(Stream& stream, const std::string& head,
                                       const ScriptedAnswer& answer) {
    if (answer.pace.count() == 0) {
        return stream.Write(head + answer.body);
    }
    return stream.Write(head) &&
           std::all_of(answer.body.begin(), answer.body.end(), [&](const char& byte) {
               return Wait(answer.pace) && stream.Write({&byte, 1});
           });
}

// False when the service is stopped meanwhile.
bool ScriptedService::State::Wait(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex);
    return !changed.wait_for(lock, time, [this] { return isStopping; });
}

ScriptedService::ScriptedService(std::optional<ServerCertificate> certificate)
    : state_(std::make_unique<State>()) {
    PrepareSockets();
    if (certificate) {
        state_->tls = MakeTlsContext(*certificate);
    }
    Start();
}

ScriptedService::~ScriptedService() {
    Stop();
}

void ScriptedService::Start() {
    {
        const std::scoped_lock lock(state_->mutex);
        state_->isStopping = false;
    }
    state_->Listen();
    state_->acceptor = std::thread([state = state_.get()] { state->AcceptClients(); });
}

void ScriptedService::Stop() {
    if (!state_->acceptor.joinable()) {
        return;
    }
    {
        const std::scoped_lock lock(state_->mutex);
        state_->isStopping = true;
        for (State::Client& client : state_->clients) {
            client.socket.Interrupt();
        }
    }
    state_->changed.notify_all();
    state_->WakeAcceptor();
    state_->acceptor.join();
    state_->listener.Close();
    for (State::Client& client : state_->clients) {
        client.thread.join();
    }
    state_->clients.clear();
}

std::uint16_t ScriptedService::Port() const {
    return state_->port;
}

std::string ScriptedService::Url() const {
    return (state_->tls ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(Port());
}

void ScriptedService::SetHandler(Handler handler) {
    const std::scoped_lock lock(state_->mutex);
    state_->handler = std::move(handler);
}

std::vector<ScriptedRequest> ScriptedService::Requests() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->requests;
}

bool ScriptedService::WaitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, limit, [&] { return state_->requests.size() >= count; });
}

int ScriptedService::ConnectionsAccepted() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->accepted;
}

int ScriptedService::HandshakesDone() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->handshakes;
}
