// The server's bounds as a stranger meets them, byte by byte.
#include "certificate.h"
#include "file_descriptor.h"
#include "http_server.h"
#include "scratch_folder.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace service {
namespace {

using namespace std::chrono_literals;
using testing::StartsWith;

// A connection that sends what it is told to.
class Stranger {
public:
    explicit Stranger(int port, const char* from = "127.0.0.1")
        : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in own = Address(from, 0);
        EXPECT_EQ(::bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
        const sockaddr_in server = Address("127.0.0.1", port);
        EXPECT_EQ(
            ::connect(socket_.Get(), reinterpret_cast<const sockaddr*>(&server), sizeof server), 0);
    }

    // False when the other side has hung up.
    bool Send(std::string_view bytes) const {
        return ::send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == std::ssize(bytes);
    }

    // What has come until there are so many bytes, or the other side hangs up.
    std::string Receive(std::size_t count = std::string::npos) const {
        std::string all;
        char byte = 0;
        while (all.size() < count && ::recv(socket_.Get(), &byte, 1, 0) == 1) {
            all += byte;
        }
        return all;
    }

    std::string Ask(std::string_view request) const {
        Send(request);
        ::shutdown(socket_.Get(), SHUT_WR);
        return Receive();
    }

    bool HungUpWithin(std::chrono::milliseconds time) const {
        pollfd readable{socket_.Get(), POLLIN, 0};
        char byte = 0;
        return ::poll(&readable, 1, static_cast<int>(time.count())) == 1 &&
               ::recv(socket_.Get(), &byte, 1, 0) <= 0;
    }

private:
    static sockaddr_in Address(const char* host, int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        ::inet_pton(AF_INET, host, &address.sin_addr);
        return address;
    }

    FileDescriptor socket_;
};

// Answers every request with its method, its target and the size of its body; one for "/kept" has
// its connection kept.
class HttpServerTest : public testing::Test {
protected:
    void Serve(const HttpLimits& limits = {}, const std::optional<TlsFiles>& tls = {}) {
        server_.emplace(tls, limits,
                        [](const HttpRequest& request, const HttpServer::Reply& reply) {
                            HttpAnswer answer;
                            answer.body = request.method + ' ' + request.target + ' ' +
                                          std::to_string(request.body.size());
                            answer.keptFor = request.target == "/kept" ? "it" : "";
                            reply(answer);
                        });
        port_ = server_->Bind("127.0.0.1", 0);
        serving_ = std::jthread([this] { server_->Serve(); });
    }

    void TearDown() override {
        if (server_) {
            server_->Stop();
        }
    }

    std::optional<HttpServer> server_;
    std::jthread serving_;
    int port_ = 0;
};

TEST_F(HttpServerTest, EveryFormOfARequestIsAnsweredOrRefusedWithItsReason) {
    Serve();
    const std::string tooLarge(70'000, 'x');
    const std::string chunk = "8000\r\n" + std::string(0x8000, 'x') + "\r\n"; // 32 KB
    std::string manyFields;
    for (int i = 0; i < 3000; ++i) {
        manyFields += "a:b\r\n";
    }
    const std::string post = "POST /a HTTP/1.1\r\n";
    struct Case {
        std::string request;
        const char* status;
        const char* end; // of the answer
    };
    const std::vector<Case> cases = {
        {"GET /a?b HTTP/1.1\r\n\r\n", "200 OK", "GET /a?b 0"},
        {"GET /a\"{\\}%zz HTTP/1.1\r\n\r\n", "200 OK", "GET /a\"{\\}%zz 0"},
        {"GET /a HTTP/1.0\r\n\r\n", "200 OK", "GET /a 0"},
        {post + "Content-Length: 3\r\n\r\nxyz", "200 OK", "POST /a 3"},
        {post + "Transfer-Encoding: chunked\r\n\r\n2\r\nxy\r\n1;n=v\r\nz\r\n0\r\n\r\n", "200 OK",
         "POST /a 3"},
        {post + "Expect: 100-continue\r\nContent-Length: 3\r\n\r\n", "100 Continue", "\r\n\r\n"},
        {post + "Content-Length: 70000\r\n\r\n" + tooLarge, "413", "too large."},
        {post + "Transfer-Encoding: chunked\r\n\r\n" + chunk + chunk + chunk, "413", "too large."},
        {post + "Transfer-Encoding: chunked\r\n\r\n1;" + tooLarge, "400", "cannot be read."},
        {post + "Content-Encoding: gzip\r\nContent-Length: 3\r\n\r\nxyz", "415", "encoded."},
        {post + "Content-Encoding: br\r\nContent-Length: 3\r\n\r\nxyz", "415", "encoded."},
        {post + "Transfer-Encoding: gzip, chunked\r\n\r\n", "415", "encoded."},
        {post + manyFields, "431", "too large."},
        {"GET /" + tooLarge, "431", "too large."},
        {"GET /a b HTTP/1.1\r\n\r\n", "400", "cannot be read."},
        {std::string("GET /\0 HTTP/1.1\r\n\r\n", 19), "400", "cannot be read."},
        {post + "Content-Length: -1\r\n\r\n", "400", "cannot be read."},
        {post + "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n", "400",
         "cannot be read."},
        {"\x16\x03\x01 and so on\r\n\r\n", "400", "cannot be read."},
    };
    for (const Case& sample : cases) {
        const std::string answer = Stranger(port_).Ask(sample.request);
        EXPECT_THAT(answer, StartsWith(std::string("HTTP/1.1 ") + sample.status))
            << sample.request.substr(0, 80);
        EXPECT_TRUE(answer.ends_with(sample.end)) << answer;
    }
}

TEST_F(HttpServerTest, RequestsThatComeTogetherAreAnsweredInTheirOrder) {
    Serve();
    const std::string answers =
        Stranger(port_).Ask("GET /1 HTTP/1.1\r\n\r\nPOST /2 HTTP/1.1\r\nContent-Length: 2\r\n\r\nab"
                            "GET /3 HTTP/1.1\r\n\r\n");
    const auto first = answers.find("GET /1 0");
    const auto second = answers.find("POST /2 2");
    EXPECT_LT(first, second);
    EXPECT_LT(second, answers.find("GET /3 0"));
    EXPECT_NE(answers.find("GET /3 0"), std::string::npos) << answers;
}

TEST_F(HttpServerTest, EverythingEnds) {
    HttpLimits limits;
    limits.request = 600ms;
    limits.idle = 300ms;
    limits.keptIdle = 10s;
    Serve(limits);
    const Stranger silent(port_);
    const Stranger slow(port_);
    const Stranger served(port_);
    const Stranger kept(port_);
    const std::string request = "GET /kept HTTP/1.1\r\n\r\n";
    kept.Send(request);
    EXPECT_THAT(kept.Receive(15), StartsWith("HTTP/1.1 200 OK"));
    served.Send("GET / HTTP/1.1\r\n\r\n");
    EXPECT_THAT(served.Receive(15), StartsWith("HTTP/1.1 200 OK"));

    // A byte now and then buys no time.
    const auto begun = std::chrono::steady_clock::now();
    bool open = slow.Send("GET / HTTP/1.1\r\nX: ");
    while (open && std::chrono::steady_clock::now() - begun < 10s) {
        std::this_thread::yield();
        open = slow.Send("y") && !slow.HungUpWithin(20ms);
    }
    EXPECT_FALSE(open);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 3s);
    EXPECT_TRUE(silent.HungUpWithin(3s));
    served.Receive();
    kept.Receive(100 - 15); // the rest of its answer, about
    EXPECT_TRUE(kept.Send(request));
    EXPECT_NE(kept.Receive(60).find("HTTP/1.1 200"), std::string::npos)
        << "a session's connection went with the idle ones";
}

TEST_F(HttpServerTest, TheManyConnectionsOfOneGiveWayToOthers) {
    HttpLimits limits;
    limits.connections = 8;
    Serve(limits);
    const Stranger kept(port_, "127.0.0.1");
    kept.Send("GET /kept HTTP/1.1\r\n\r\n");
    kept.Receive(15);
    const Stranger neighbour(port_, "127.0.0.2");
    neighbour.Send("GET / HTTP/1.1\r\n\r\n");
    neighbour.Receive(15);
    std::vector<Stranger> many;
    for (int i = 0; i < 40; ++i) {
        many.emplace_back(port_, "127.0.0.3").Send("POST / HTTP/1.1\r\nContent-Length: 9\r\n");
    }
    EXPECT_THAT(Stranger(port_, "127.0.0.4").Ask("GET /n HTTP/1.1\r\n\r\n"),
                StartsWith("HTTP/1.1 200 OK"));
    EXPECT_TRUE(many.front().HungUpWithin(3s));
    for (const Stranger* const other : {&kept, &neighbour}) {
        other->Send("GET /again HTTP/1.1\r\nConnection: close\r\n\r\n");
        EXPECT_NE(other->Receive().find("/again"), std::string::npos)
            << "somebody else had to give way";
    }
}

// ---- TLS ----------------------------------------------------------------------------------------

TlsFiles MakeTlsFiles(const std::filesystem::path& folder) {
    EnsureCertificate(folder);
    return {CertificateFilesIn(folder).server, CertificateFilesIn(folder).key};
}

bool Reaches(int port, const std::filesystem::path& trusted, int version, const char* suites) {
    httplib::SSLClient client("127.0.0.1", port);
    client.set_ca_cert_path((trusted / "ca.pem").c_str());
    client.enable_server_certificate_verification(true);
    SSL_CTX_set_security_level(client.ssl_context(), 0);
    SSL_CTX_set_min_proto_version(client.ssl_context(), version);
    SSL_CTX_set_max_proto_version(client.ssl_context(), version);
    SSL_CTX_set_cipher_list(client.ssl_context(), suites);
    const auto answer = client.Get("/");
    return answer && answer->body == "GET / 0";
}

TEST_F(HttpServerTest, OnlySoundTlsIsSpoken) {
    const ScratchFolder folder;
    Serve({}, MakeTlsFiles(folder.Path()));
    EXPECT_TRUE(Reaches(port_, folder.Path(), TLS1_3_VERSION, "ALL"));
    EXPECT_TRUE(Reaches(port_, folder.Path(), TLS1_2_VERSION, "ALL"));
    EXPECT_FALSE(Reaches(port_, folder.Path(), TLS1_2_VERSION, "ECDHE+AES+SHA1:ECDHE+AES+SHA256"));
    EXPECT_FALSE(Reaches(port_, folder.Path(), TLS1_1_VERSION, "ALL"));
    EXPECT_EQ(Stranger(port_).Ask("GET / HTTP/1.1\r\n\r\n").find("HTTP"), std::string::npos);
}

TEST_F(HttpServerTest, ANewCertificateIsTakenAndABadOneIsNot) {
    const ScratchFolder former;
    const ScratchFolder later;
    const TlsFiles first = MakeTlsFiles(former.Path());
    const TlsFiles second = MakeTlsFiles(later.Path());
    Serve({}, first);
    std::ofstream(later / "empty") << "";
    const std::vector<TlsFiles> bad = {{first.certificate, second.key},
                                       {later / "none", second.key},
                                       {second.certificate, later / "empty"}};
    for (const TlsFiles& files : bad) {
        EXPECT_THROW(server_->UseCertificate(files), std::runtime_error);
    }
    EXPECT_TRUE(Reaches(port_, former.Path(), TLS1_3_VERSION, "ALL"));
    server_->UseCertificate(second);
    EXPECT_TRUE(Reaches(port_, later.Path(), TLS1_3_VERSION, "ALL"));
    EXPECT_FALSE(Reaches(port_, former.Path(), TLS1_3_VERSION, "ALL"));
}

} // namespace
} // namespace service
