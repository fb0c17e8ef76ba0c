#include "http_api.h"

#include "accounts.h"
#include "base64.h"
#include "log.h"
#include "sessions.h"

#include <httplib.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <vector>

namespace service {
namespace {

using Json = nlohmann::ordered_json; // clients rely on the documented order of keys

constexpr std::size_t kLargestBody = std::size_t{256} * 1024; // bytes; an exchange needs 44 KB
constexpr std::size_t kRequestsOfAConnection = 1'000'000'000; // no practical limit
constexpr std::time_t kKeepAliveSeconds = 75;

constexpr const char* kPlainText = "text/plain; charset=utf-8";
constexpr const char* kJsonText = "application/json";

struct RefusalAnswer {
    Refusal refusal;
    int status;
    const char* word;
};

constexpr std::array kRefusalAnswers = {
    RefusalAnswer{Refusal::None, 200, ""},
    RefusalAnswer{Refusal::KeyNotFound, 403, "key_not_found"},
    RefusalAnswer{Refusal::KeyDisabled, 403, "key_disabled"},
    RefusalAnswer{Refusal::QuotaExceeded, 403, "quota_exceeded"},
    RefusalAnswer{Refusal::SessionNotFound, 404, "session_not_found"},
    RefusalAnswer{Refusal::NoDecoderFree, 503, ""},
};

const RefusalAnswer& AnswerFor(Refusal refusal) {
    return *std::ranges::find(kRefusalAnswers, refusal, &RefusalAnswer::refusal);
}

void Answer(httplib::Response& response, const Json& body) {
    response.status = 200;
    response.set_content(body.dump(), kJsonText);
}

void AnswerPlainly(httplib::Response& response, int status, const std::string& reason) {
    response.status = status;
    response.set_content(reason, kPlainText);
}

void Refuse(httplib::Response& response, Refusal refusal) {
    const RefusalAnswer& answer = AnswerFor(refusal);
    if (refusal == Refusal::NoDecoderFree) {
        AnswerPlainly(response, answer.status, "All recognisers of this service are in use.");
        return;
    }
    Answer(response, {{"detail", answer.word}});
    response.status = answer.status;
}

// The client's fault: its text is the one-line answer with status 400.
class BadRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

Json ParseBody(const httplib::Request& request) {
    Json body = Json::parse(request.body, nullptr, false);
    if (!body.is_object()) {
        throw BadRequest("The body is not a JSON object.");
    }
    return body;
}

std::string Text(const Json& body, const char* key) {
    const auto found = body.find(key);
    if (found == body.end() || !found->is_string()) {
        throw BadRequest(std::string("The body has no string \"") + key + "\".");
    }
    return found->get<std::string>();
}

std::vector<std::int16_t> Samples(const std::string& base64) {
    const auto bytes = DecodeBase64(base64);
    if (!bytes) {
        throw BadRequest("\"audio_b64\" is not Base64.");
    }
    if (bytes->size() % 2 != 0) {
        throw BadRequest("\"audio_b64\" holds half a sample.");
    }
    std::vector<std::int16_t> samples(bytes->size() / 2);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const unsigned int low = (*bytes)[2 * i];
        const unsigned int high = (*bytes)[2 * i + 1];
        samples[i] = static_cast<std::int16_t>(low | (high << 8U));
    }
    return samples;
}

// The key as it stands in the request's target. Clients do not encode it, so nothing is decoded:
// all keys of this service are plain in a URL, and any other text is a key that nobody has.
std::string_view KeyInTarget(std::string_view target) {
    constexpr std::string_view kName = "access_key=";
    std::string_view query = target.substr(std::min(target.find('?'), target.size() - 1) + 1);
    while (!query.empty()) {
        const std::string_view parameter = query.substr(0, query.find('&'));
        if (parameter.starts_with(kName)) {
            return parameter.substr(kName.size());
        }
        query.remove_prefix(std::min(parameter.size() + 1, query.size()));
    }
    return {};
}

Json CaptionJson(const Caption& caption, const Conversation& languages) {
    return {{"original", caption.original},
            {"translated", caption.translated},
            {"is_final", caption.isFinal},
            {"source_lang", languages.spokenLocale},
            {"target_lang", languages.targetCode}};
}

void AnswerException(httplib::Response& response, const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const BadRequest& fault) {
        AnswerPlainly(response, 400, fault.what());
        return;
    } catch (const std::exception& failure) {
        Log(std::string("error: ") + failure.what());
    } catch (...) {
        Log("error: of an unknown kind");
    }
    Answer(response, {{"detail", "internal_error"}});
    response.status = 500;
}

std::unique_ptr<httplib::Server> MakeServer(const std::optional<TlsFiles>& tls) {
    if (!tls) {
        return std::make_unique<httplib::Server>();
    }
    auto server = std::make_unique<httplib::SSLServer>(tls->certificate.c_str(), tls->key.c_str());
    if (!server->is_valid()) {
        throw std::runtime_error("cannot use the certificate " + tls->certificate.string() +
                                 " with the key " + tls->key.string());
    }
    return server;
}

int PortOf(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET) {
        return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    }
    if (address.ss_family == AF_INET6) {
        return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    }
    return -1;
}

// The library closes no connection that is kept alive before its time is over, and hands out no
// list of them: they are the process's sockets whose own end is the service's port.
void CutConnections(int port) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string name = entry.path().filename();
        int descriptor = -1;
        std::from_chars(name.data(), name.data() + name.size(), descriptor);
        sockaddr_storage own{};
        socklen_t size = sizeof own;
        if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size) == 0 &&
            PortOf(own) == port) {
            ::shutdown(descriptor, SHUT_RDWR);
        }
    }
}

} // namespace

HttpApi::HttpApi(Accounts& accounts, Sessions& sessions, const std::optional<TlsFiles>& tls,
                 std::size_t connections)
    : accounts_(accounts), sessions_(sessions), server_(MakeServer(tls)) {
    SetUpServer(connections);
    SetUpAnswers();
}

HttpApi::~HttpApi() = default;

void HttpApi::SetUpServer(std::size_t connections) {
    // The library takes ownership of the queue.
    server_->new_task_queue = [connections] {
        return std::make_unique<httplib::ThreadPool>(connections).release();
    };
    server_->set_tcp_nodelay(true);
    server_->set_keep_alive_max_count(kRequestsOfAConnection);
    server_->set_keep_alive_timeout(kKeepAliveSeconds);
    server_->set_payload_max_length(kLargestBody);
    // Not the library's SO_REUSEPORT: with it a second service would share the port unnoticed.
    server_->set_socket_options([](socket_t socket) {
        const int on = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
}

void HttpApi::SetUpAnswers() {
    using Operation = void (HttpApi::*)(const httplib::Request&, httplib::Response&);
    const auto handler = [this](Operation operation) {
        return [this, operation](const httplib::Request& request, httplib::Response& response) {
            (this->*operation)(request, response);
        };
    };
    server_->Get("/key/status", handler(&HttpApi::KeyStatus));
    server_->Post("/session/start", handler(&HttpApi::SessionStart));
    server_->Post("/session/exchange", handler(&HttpApi::SessionExchange));
    server_->Post("/session/stop", handler(&HttpApi::SessionStop));

    server_->set_exception_handler(
        [](const httplib::Request&, httplib::Response& response,
           const std::exception_ptr& exception) { AnswerException(response, exception); });
    // What the library itself turns down comes without a body.
    server_->set_error_handler([](const httplib::Request&, httplib::Response& response) {
        if (response.body.empty()) {
            response.set_content(response.status == 413   ? "The body is too large."
                                 : response.status == 404 ? "There is no such operation."
                                                          : "The request cannot be read.",
                                 kPlainText);
        }
    });
}

int HttpApi::Bind(const std::string& address, int port) {
    errno = 0;
    if (port == 0) {
        port_ = server_->bind_to_any_port(address);
    } else {
        port_ = server_->bind_to_port(address, port) ? port : -1;
    }
    if (port_ <= 0) {
        throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port) +
                                 (errno == 0 ? "" : std::string(": ") + std::strerror(errno)));
    }
    return port_;
}

bool HttpApi::Serve() {
    const bool served = server_->listen_after_bind();
    ended_ = true;
    return served;
}

void HttpApi::Stop() {
    // The library forgets a stop that comes before it has begun to serve.
    while (!server_->is_running() && !ended_) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    server_->stop();
    CutConnections(port_);
}

void HttpApi::KeyStatus(const httplib::Request& request, httplib::Response& response) {
    const std::optional<Account> account = accounts_.Find(KeyInTarget(request.target));
    const Refusal refusal = RefusalOf(account);
    const Account shown = account.value_or(Account{});
    const auto seconds = [](std::int64_t ms) { return static_cast<double>(ms) / 1000.0; };
    Answer(response, {{"valid", refusal == Refusal::None},
                      {"reason", AnswerFor(refusal).word},
                      {"unlimited", shown.unlimited},
                      {"remaining_seconds", seconds(shown.RemainingMs())},
                      {"total_used_seconds", seconds(shown.usedMs)},
                      {"initial_seconds", seconds(shown.initialMs)}});
}

void HttpApi::SessionStart(const httplib::Request& request, httplib::Response& response) {
    const Json body = ParseBody(request);
    const std::string key = Text(body, "access_key");
    const auto conversation = AgreeOn({Text(body, "lang_a"), Text(body, "lang_a_tgt")},
                                      {Text(body, "lang_b"), Text(body, "lang_b_tgt")});
    if (!conversation) {
        throw BadRequest("This service hears English and translates it into Spanish, Portuguese, "
                         "French or Italian. Choose English and one of these.");
    }
    const StartAnswer answer = sessions_.Start(key, *conversation);
    if (answer.refusal != Refusal::None) {
        return Refuse(response, answer.refusal);
    }
    Answer(response, {{"session_id", answer.sessionId}});
}

void HttpApi::SessionExchange(const httplib::Request& request, httplib::Response& response) {
    const Json body = ParseBody(request);
    const ExchangeAnswer answer = sessions_.Exchange(
        Text(body, "session_id"), Text(body, "access_key"), Samples(Text(body, "audio_b64")));
    if (answer.refusal != Refusal::None) {
        return Refuse(response, answer.refusal);
    }
    Json captions = Json::array();
    for (const Caption& caption : answer.captions) {
        captions.push_back(CaptionJson(caption, answer.languages));
    }
    Answer(response, captions);
}

void HttpApi::SessionStop(const httplib::Request& request, httplib::Response& response) {
    const Json body = ParseBody(request);
    const Refusal refusal = sessions_.Stop(Text(body, "session_id"), Text(body, "access_key"));
    if (refusal != Refusal::None) {
        return Refuse(response, refusal);
    }
    Answer(response, Json::object());
}

} // namespace service
