#include "http_server.h"

#include "log.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <malloc.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <exception>
#include <fstream>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace service {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;
using Error = boost::system::error_code;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::size_t kReadSize = std::size_t{8} * 1024; // bytes at a time
// How long what a refused client goes on sending is read and thrown away: closed at once, the
// connection would be reset, and the answer lost with it.
constexpr auto kLinger = 2s;
constexpr auto kSweepEvery = 200ms;
constexpr std::uint64_t kClosedForTrim = 100;
constexpr auto kTrimEvery = 5s;
constexpr auto kLastAnswers = 1s;
constexpr auto kOwingEvery = 5ms;
constexpr auto kAcceptAgainAfter = 200ms;
constexpr auto kSameLogEvery = 60s;

using Done = std::function<void(const Error&, std::size_t)>;

// ---- TLS ----------------------------------------------------------------------------------------

std::string OpensslReason() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    const char* const reason = code == 0 ? nullptr : ERR_reason_error_string(code);
    return reason == nullptr ? std::string("unknown reason") : reason;
}

std::shared_ptr<asio::ssl::context> MakeTls(const TlsFiles& files) {
    auto tls = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
    SSL_CTX* const context = tls->native_handle();
    const auto fail = [](const std::string& what) {
        throw std::runtime_error(what + ": " + OpensslReason());
    };
    // What OpenSSL says of a file that is not there is not for people.
    for (const auto& file : {files.certificate, files.key}) {
        if (!std::ifstream(file)) {
            throw std::system_error(errno, std::generic_category(), "cannot read " + file.string());
        }
    }
    if (SSL_CTX_use_certificate_chain_file(context, files.certificate.c_str()) != 1) {
        fail("cannot use the certificate " + files.certificate.string());
    }
    if (SSL_CTX_use_PrivateKey_file(context, files.key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(context) != 1) {
        fail("cannot use the certificate " + files.certificate.string() + " with the key " +
             files.key.string());
    }
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    // Of 1.2 only suites with forward secrecy and authenticated encryption; all of 1.3 are.
    SSL_CTX_set_cipher_list(context, "ECDHE+AESGCM:ECDHE+CHACHA20");
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION |
                                     SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS); // an idle connection holds none
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    return tls;
}

// ---- One way to read and write, with TLS or without ---------------------------------------------

class Transport {
public:
    Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    virtual ~Transport() = default;
    virtual void Greet(Done done) = 0;
    virtual void Read(asio::mutable_buffer room, Done done) = 0;
    virtual void Write(asio::const_buffer bytes, Done done) = 0;
};

class PlainTransport : public Transport {
public:
    explicit PlainTransport(tcp::socket& socket) : socket_(socket) {}
    void Greet(Done done) override { done({}, 0); }
    void Read(asio::mutable_buffer room, Done done) override {
        socket_.async_read_some(room, std::move(done));
    }
    void Write(asio::const_buffer bytes, Done done) override {
        asio::async_write(socket_, bytes, std::move(done));
    }

private:
    tcp::socket& socket_;
};

class TlsTransport : public Transport {
public:
    TlsTransport(tcp::socket& socket, asio::ssl::context& tls) : stream_(socket, tls) {}
    void Greet(Done done) override {
        stream_.async_handshake(asio::ssl::stream_base::server,
                                [done = std::move(done)](const Error& error) { done(error, 0); });
    }
    void Read(asio::mutable_buffer room, Done done) override {
        stream_.async_read_some(room, std::move(done));
    }
    void Write(asio::const_buffer bytes, Done done) override {
        asio::async_write(stream_, bytes, std::move(done));
    }

private:
    asio::ssl::stream<tcp::socket&> stream_;
};

// ---- Texts --------------------------------------------------------------------------------------

struct Fault {
    int status;
    const char* text;
};

constexpr Fault kUnreadable{400, "The request cannot be read."};
constexpr Fault kBodyTooLarge{413, "The body is too large."};
constexpr Fault kEncoded{415, "Bodies are taken as they are, not compressed or otherwise encoded."};
constexpr Fault kHeadTooLarge{431, "The head of the request is too large."};

Fault FaultOf(const Error& error) {
    if (error == http::error::body_limit) {
        return kBodyTooLarge;
    }
    return error == http::error::header_limit ? kHeadTooLarge : kUnreadable;
}

std::string Wire(const HttpAnswer& answer, bool keepAlive) {
    const auto reason =
        http::obsolete_reason(http::int_to_status(static_cast<unsigned>(answer.status)));
    std::string text = "HTTP/1.1 " + std::to_string(answer.status) + ' ';
    text.append(reason.data(), reason.size());
    text += "\r\nContent-Type: ";
    text += answer.contentType;
    text += "\r\nContent-Length: " + std::to_string(answer.body.size());
    text += keepAlive ? "\r\nConnection: keep-alive\r\n\r\n" : "\r\nConnection: close\r\n\r\n";
    return text + answer.body;
}

// What stands for one neighbour on the network: the address, or the network of an IPv6 address, of
// which anybody has billions.
std::string NeighbourOf(const asio::ip::address& address) {
    if (!address.is_v6()) {
        return address.to_string();
    }
    asio::ip::address_v6 long_form = address.to_v6();
    if (long_form.is_v4_mapped()) {
        return asio::ip::make_address_v4(asio::ip::v4_mapped, long_form).to_string();
    }
    auto bytes = long_form.to_bytes();
    std::fill(bytes.begin() + 8, bytes.end(), static_cast<unsigned char>(0));
    return asio::ip::address_v6(bytes).to_string() + "/64";
}

} // namespace

// ---- A connection -------------------------------------------------------------------------------

namespace {

class Connection;

// What a connection needs of the server.
class Surroundings {
public:
    Surroundings() = default;
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;
    virtual ~Surroundings() = default;
    virtual const HttpLimits& Limits() const = 0;
    virtual std::shared_ptr<asio::ssl::context> Tls() const = 0; // null: none
    virtual void Handle(const std::shared_ptr<Connection>& connection, HttpRequest request) = 0;
    virtual void Keep(const std::shared_ptr<Connection>& connection, const std::string& name) = 0;
    virtual void CountRefusal() = 0;
    virtual void Forget(const std::shared_ptr<Connection>& connection) = 0;
};

// Everything on the server's thread. Alive as long as an operation of it is under way.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(tcp::socket socket, std::string neighbour, Surroundings& around)
        : socket_(std::move(socket)), neighbour_(std::move(neighbour)), around_(around),
          buffer_(around.Limits().head + kReadSize) {}

    void Begin() {
        RestUntil(around_.Limits().request);
        // A stranger who says nothing costs no buffers of TLS.
        socket_.async_wait(tcp::socket::wait_read, [self = shared_from_this()](const Error& error) {
            error ? self->Close() : self->Greet();
        });
    }

    void Answer(const HttpAnswer& answer) {
        if (closed_) {
            return;
        }
        working_ = false;
        if (!answer.keptFor.empty()) {
            around_.Keep(shared_from_this(), answer.keptFor);
        }
        Send(answer, keepAlive_);
    }

    void Close() {
        if (std::exchange(closed_, true)) {
            return;
        }
        Error ignored;
        socket_.close(ignored);
        around_.Forget(shared_from_this());
    }

    void SetKept(bool kept) { kept_ = kept; }

    const std::string& Neighbour() const { return neighbour_; }
    Clock::time_point Deadline() const { return deadline_; }
    Clock::time_point LastAnswer() const { return lastAnswer_; }
    bool OwesAnswer() const { return working_ || !wire_.empty(); }
    bool CanMakeRoom() const { return !working_ && !kept_; }

private:
    using Parser = http::request_parser<http::string_body>;

    void RestUntil(Clock::duration limit) { deadline_ = Clock::now() + limit; }

    void Greet() {
        const auto tls = around_.Tls();
        if (tls) {
            transport_ = std::make_unique<TlsTransport>(socket_, *tls);
        } else {
            transport_ = std::make_unique<PlainTransport>(socket_);
        }
        transport_->Greet([self = shared_from_this()](const Error& error, std::size_t) {
            error ? self->Close() : self->ReadMore();
        });
    }

    void ReadMore() {
        const std::size_t room = std::min(kReadSize, buffer_.max_size() - buffer_.size());
        transport_->Read(buffer_.prepare(room),
                         [self = shared_from_this()](const Error& error, std::size_t count) {
                             if (error) {
                                 return self->Close();
                             }
                             self->buffer_.commit(count);
                             self->Parse();
                         });
    }

    void Parse() {
        if (!parser_) {
            parser_.emplace();
            parser_->eager(true);
            headBytes_ = 0;
            parser_->body_limit(around_.Limits().body);
            RestUntil(around_.Limits().request);
        }
        const bool hadHead = parser_->is_header_done();
        Error error;
        while (!error && buffer_.size() > 0 && !parser_->is_done()) {
            const std::size_t used = parser_->put(buffer_.data(), error);
            headBytes_ += parser_->is_header_done() ? 0 : used;
            buffer_.consume(used);
        }
        // The parser's own limit is for one field, not for all of them.
        if (!parser_->is_header_done() && headBytes_ + buffer_.size() > around_.Limits().head) {
            return Refuse(kHeadTooLarge);
        }
        if (error && error != http::error::need_more) {
            return Refuse(FaultOf(error));
        }
        if (!hadHead && parser_->is_header_done() && !TakesBody()) {
            return Refuse(kEncoded);
        }
        if (parser_->is_done()) {
            return HandOn();
        }
        if (buffer_.size() == buffer_.max_size()) {
            return Refuse(kUnreadable); // a line between chunks that never ends
        }
        if (!hadHead && parser_->is_header_done() && AsksWhetherToSend()) {
            return SendContinue();
        }
        ReadMore();
    }

    // Anything that would have to be unpacked costs more than it shows.
    bool TakesBody() const {
        const auto& head = parser_->get();
        const auto encoding = head[http::field::content_encoding];
        const auto transfer = head[http::field::transfer_encoding];
        return (encoding.empty() || boost::beast::iequals(encoding, "identity")) &&
               (transfer.empty() || boost::beast::iequals(transfer, "chunked"));
    }

    bool AsksWhetherToSend() const {
        return boost::beast::iequals(parser_->get()[http::field::expect], "100-continue");
    }

    void SendContinue() {
        static constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
        transport_->Write(asio::buffer(kContinue.data(), kContinue.size()),
                          [self = shared_from_this()](const Error& error, std::size_t) {
                              error ? self->Close() : self->ReadMore();
                          });
    }

    void HandOn() {
        auto message = parser_->release();
        parser_.reset();
        keepAlive_ = message.keep_alive();
        working_ = true;
        deadline_ = Clock::time_point::max();
        const auto method = message.method_string();
        const auto target = message.target();
        around_.Handle(shared_from_this(), {{method.data(), method.size()},
                                            {target.data(), target.size()},
                                            std::move(message.body()),
                                            neighbour_});
    }

    void Refuse(const Fault& fault) {
        around_.CountRefusal();
        HttpAnswer answer;
        answer.status = fault.status;
        answer.body = fault.text;
        Send(answer, false);
    }

    void Send(const HttpAnswer& answer, bool keepAlive) {
        RestUntil(around_.Limits().request);
        wire_ = Wire(answer, keepAlive);
        transport_->Write(asio::buffer(wire_),
                          [self = shared_from_this(), keepAlive](const Error& error, std::size_t) {
                              if (error) {
                                  return self->Close();
                              }
                              self->wire_ = {};
                              self->lastAnswer_ = Clock::now();
                              keepAlive ? self->AwaitNext() : self->Linger();
                          });
    }

    void AwaitNext() {
        RestUntil(kept_ ? around_.Limits().keptIdle : around_.Limits().idle);
        if (buffer_.size() > 0) {
            return Parse(); // has come with the last request
        }
        buffer_.shrink_to_fit();
        ReadMore();
    }

    void Linger() {
        RestUntil(kLinger);
        Error ignored;
        socket_.shutdown(tcp::socket::shutdown_send, ignored);
        Discard();
    }

    void Discard() {
        buffer_.clear();
        transport_->Read(buffer_.prepare(kReadSize),
                         [self = shared_from_this()](const Error& error, std::size_t) {
                             error ? self->Close() : self->Discard();
                         });
    }

    tcp::socket socket_;
    const std::string neighbour_;
    Surroundings& around_;
    std::unique_ptr<Transport> transport_; // made at the first byte
    boost::beast::flat_buffer buffer_;
    std::optional<Parser> parser_; // of the request under way
    std::size_t headBytes_ = 0;    // of its head, read so far
    std::string wire_;             // the answer under way
    Clock::time_point deadline_;
    Clock::time_point lastAnswer_ = Clock::now(); // or its beginning
    bool keepAlive_ = false;
    bool working_ = false; // the handler has its request
    bool kept_ = false;
    bool closed_ = false;
};

} // namespace

// ---- The server ---------------------------------------------------------------------------------

class HttpServer::Core : private Surroundings {
public:
    Core(const std::optional<TlsFiles>& tls, const HttpLimits& limits, Handler handler)
        : limits_(limits), handler_(std::move(handler)), acceptor_(io_), sweep_(io_),
          acceptAgain_(io_) {
        if (tls) {
            tls_ = MakeTls(*tls);
        }
    }

    int Bind(const std::string& address, int port) {
        acceptor_ = Open(address, port);
        address_ = address;
        port_ = acceptor_.local_endpoint().port();
        return port_;
    }

    void Rebind(const std::string& address, int port) {
        std::promise<void> done;
        asio::post(io_, [&] {
            Error ignored;
            acceptor_.close(ignored); // one address may hold the other
            try {
                Bind(address, port);
                done.set_value();
            } catch (...) {
                BindAgain();
                done.set_exception(std::current_exception());
            }
            if (acceptor_.is_open()) {
                Accept();
            }
        });
        done.get_future().get();
    }

    void Serve() {
        Accept();
        Sweep();
        io_.run();
        const auto open = connections_;
        for (const auto& connection : open) {
            connection->Close();
        }
        Error ignored;
        acceptor_.close(ignored);
    }

    void Stop() {
        asio::post(io_, [this] {
            Error ignored;
            acceptor_.close(ignored);
            StopWhenAnswered(Clock::now() + kLastAnswers);
        });
    }

    void StopAccepting() {
        asio::post(io_, [this] {
            Error ignored;
            acceptor_.close(ignored);
        });
    }

    void UseCertificate(const TlsFiles& files) {
        auto tls = MakeTls(files);
        const std::lock_guard lock(tlsMutex_);
        tls_ = std::move(tls);
    }

    HttpFigures Figures() const { return {requests_, refused_, closed_, acceptFailures_, open_}; }

private:
    // An address in numbers needs nothing of the system, which may have closed most of it to us.
    tcp::endpoint Resolve(const std::string& address, int port) {
        Error notNumbers;
        const auto numbers = asio::ip::make_address(address, notNumbers);
        if (!notNumbers) {
            return {numbers, static_cast<std::uint16_t>(port)};
        }
        return *tcp::resolver(io_)
                    .resolve(address, std::to_string(port),
                             tcp::resolver::passive | tcp::resolver::numeric_service)
                    .begin();
    }

    tcp::acceptor Open(const std::string& address, int port) {
        try {
            const tcp::endpoint endpoint = Resolve(address, port);
            tcp::acceptor acceptor(io_);
            acceptor.open(endpoint.protocol());
            // So that a restart need not wait; a second service does not share the port by it.
            acceptor.set_option(tcp::acceptor::reuse_address(true));
            acceptor.bind(endpoint);
            acceptor.listen();
            return acceptor;
        } catch (const boost::system::system_error& failure) {
            throw std::runtime_error("cannot listen on " + address + " port " +
                                     std::to_string(port) + ": " + failure.code().message());
        }
    }

    void BindAgain() {
        try {
            Bind(address_, port_);
        } catch (const std::exception& failure) {
            Log(std::string("error: nobody can connect any more: ") + failure.what());
        }
    }

    void StopWhenAnswered(Clock::time_point latest) {
        const bool owing = std::ranges::any_of(
            connections_, [](const auto& connection) { return connection->OwesAnswer(); });
        if (!owing || Clock::now() >= latest) {
            return io_.stop();
        }
        sweep_.expires_after(kOwingEvery); // in the place of what it swept
        sweep_.async_wait([this, latest](const Error&) { StopWhenAnswered(latest); });
    }

    void Accept() {
        acceptor_.async_accept([this](const Error& error, tcp::socket socket) {
            if (error == asio::error::operation_aborted) {
                return;
            }
            if (error) {
                return AcceptAgainLater(error);
            }
            Take(std::move(socket));
            Accept();
        });
    }

    // None of the reasons is the end: too many descriptors, a client that has gone again.
    void AcceptAgainLater(const Error& error) {
        ++acceptFailures_;
        const auto now = Clock::now();
        if (now - acceptFailureLogged_ >= kSameLogEvery) {
            acceptFailureLogged_ = now;
            Log("error: a client could not be accepted: " + error.message());
        }
        MakeRoom();
        acceptAgain_.expires_after(kAcceptAgainAfter);
        acceptAgain_.async_wait([this](const Error& cancelled) {
            if (!cancelled && acceptor_.is_open()) {
                Accept();
            }
        });
    }

    void Take(tcp::socket socket) {
        Error error;
        const tcp::endpoint client = socket.remote_endpoint(error);
        if (error) {
            return; // has gone again
        }
        socket.set_option(tcp::no_delay(true), error);
        while (connections_.size() >= limits_.connections && MakeRoom()) {
        }
        if (connections_.size() >= limits_.connections) {
            ++closed_;
            return;
        }
        Surroundings& around = *this;
        auto connection =
            std::make_shared<Connection>(std::move(socket), NeighbourOf(client.address()), around);
        connections_.insert(connection);
        open_ = connections_.size();
        connection->Begin();
    }

    // Closes the connection that has waited longest of the neighbour who has most: strangers with
    // many push out their own. False when there is none to close.
    bool MakeRoom() {
        std::map<std::string_view, std::size_t> counts;
        for (const auto& connection : connections_) {
            counts[connection->Neighbour()] += connection->CanMakeRoom() ? 1U : 0U;
        }
        const auto most =
            std::ranges::max_element(counts, {}, [](const auto& entry) { return entry.second; });
        if (most == counts.end() || most->second == 0) {
            return false;
        }
        std::shared_ptr<Connection> oldest;
        for (const auto& connection : connections_) {
            const bool theirs = connection->Neighbour() == most->first && connection->CanMakeRoom();
            if (theirs && (!oldest || connection->LastAnswer() < oldest->LastAnswer())) {
                oldest = connection;
            }
        }
        ++closed_;
        oldest->Close();
        return true;
    }

    void Sweep() {
        const auto now = Clock::now();
        std::vector<std::shared_ptr<Connection>> late;
        std::ranges::copy_if(connections_, std::back_inserter(late),
                             [&](const auto& connection) { return connection->Deadline() < now; });
        for (const auto& connection : late) {
            ++closed_;
            connection->Close();
        }
        GiveBackMemory(now);
        sweep_.expires_after(kSweepEvery);
        sweep_.async_wait([this](const Error& cancelled) {
            if (!cancelled) {
                Sweep();
            }
        });
    }

    // What a crowd has taken would stay with the process for good.
    void GiveBackMemory(Clock::time_point now) {
        if (closed_ - closedAtTrim_ >= kClosedForTrim && now - trimmed_ >= kTrimEvery) {
            closedAtTrim_ = closed_;
            trimmed_ = now;
            ::malloc_trim(0);
        }
    }

    const HttpLimits& Limits() const override { return limits_; }

    std::shared_ptr<asio::ssl::context> Tls() const override {
        const std::lock_guard lock(tlsMutex_);
        return tls_;
    }

    void Handle(const std::shared_ptr<Connection>& connection, HttpRequest request) override {
        ++requests_;
        handler_(std::move(request),
                 [this, waiting = std::weak_ptr(connection)](HttpAnswer answer) {
                     asio::post(io_, [waiting, answer = std::move(answer)] {
                         if (const auto client = waiting.lock()) {
                             client->Answer(answer);
                         }
                     });
                 });
    }

    void Keep(const std::shared_ptr<Connection>& connection, const std::string& name) override {
        const auto former = kept_.find(name);
        if (former != kept_.end()) {
            const auto other = former->second.lock();
            if (other == connection) {
                return;
            }
            if (other) {
                other->SetKept(false);
            }
        }
        std::erase_if(kept_, [&](const auto& entry) {
            return entry.second.expired() || entry.second.lock() == connection;
        });
        kept_[name] = connection;
        connection->SetKept(true);
    }

    void CountRefusal() override { ++refused_; }

    void Forget(const std::shared_ptr<Connection>& connection) override {
        connections_.erase(connection);
        open_ = connections_.size();
    }

    asio::io_context io_{1}; // first: it outlives everything that it drives
    const HttpLimits limits_;
    const Handler handler_;
    mutable std::mutex tlsMutex_;             // guards tls_
    std::shared_ptr<asio::ssl::context> tls_; // null: none
    tcp::acceptor acceptor_;
    std::string address_; // where it is, or was last
    int port_ = 0;
    asio::steady_timer sweep_;
    asio::steady_timer acceptAgain_;
    Clock::time_point acceptFailureLogged_{};
    Clock::time_point trimmed_{};
    std::uint64_t closedAtTrim_ = 0;
    std::set<std::shared_ptr<Connection>> connections_;
    std::map<std::string, std::weak_ptr<Connection>> kept_; // by what they are kept for
    // Counted on the server's thread, read by any.
    std::atomic<std::uint64_t> requests_ = 0;
    std::atomic<std::uint64_t> refused_ = 0;
    std::atomic<std::uint64_t> closed_ = 0;
    std::atomic<std::uint64_t> acceptFailures_ = 0;
    std::atomic<std::size_t> open_ = 0;
};

HttpServer::HttpServer(const std::optional<TlsFiles>& tls, const HttpLimits& limits,
                       Handler handler)
    : core_(std::make_unique<Core>(tls, limits, std::move(handler))) {}

HttpServer::~HttpServer() = default;

int HttpServer::Bind(const std::string& address, int port) {
    return core_->Bind(address, port);
}

void HttpServer::Serve() {
    core_->Serve();
}

void HttpServer::Stop() {
    core_->Stop();
}

void HttpServer::StopAccepting() {
    core_->StopAccepting();
}

void HttpServer::Rebind(const std::string& address, int port) {
    core_->Rebind(address, port);
}

HttpFigures HttpServer::Figures() const {
    return core_->Figures();
}

void HttpServer::UseCertificate(const TlsFiles& tls) {
    core_->UseCertificate(tls);
}

} // namespace service
