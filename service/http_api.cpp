#include "http_api.h"

#include "base64.h"
#include "ledger.h"
#include "log.h"
#include "request_fields.h"
#include "sessions.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace service {
namespace {

using Json = nlohmann::ordered_json; // clients rely on the documented order of keys

// What is no word that clients know is answered as plain text, for people.
struct RefusalAnswer {
    Refusal refusal;
    int status;
    const char* word;
    const char* text;
    const char* reason; // in the metrics
};

constexpr std::array<RefusalAnswer, kRefusals> kRefusalAnswers = {{
    {Refusal::None, 200, "", nullptr, "none"},
    {Refusal::KeyNotFound, 403, "key_not_found", nullptr, "key_not_found"},
    {Refusal::KeyDisabled, 403, "key_disabled", nullptr, "key_disabled"},
    {Refusal::QuotaExceeded, 403, "quota_exceeded", nullptr, "quota_exceeded"},
    {Refusal::SessionNotFound, 404, "session_not_found", nullptr, "session_not_found"},
    {Refusal::SessionBusy, 409, "", "The session is in another exchange.", "session_busy"},
    {Refusal::NoDecoderFree, 503, "", "All recognisers of this service are in use.",
     "no_decoder_free"},
    {Refusal::Overloaded, 503, "", "This service has as much to do as its computer can.",
     "overloaded"},
    {Refusal::CannotStore, 503, "", "The service cannot store what is used at the moment.",
     "cannot_store"},
    {Refusal::Ending, 503, "", "The service is being stopped.", "ending"},
}};

const RefusalAnswer& AnswerFor(Refusal refusal) {
    return *std::ranges::find(kRefusalAnswers, refusal, &RefusalAnswer::refusal);
}

HttpAnswer Answer(const Json& body) {
    return {200, "application/json", body.dump(), {}};
}

// For a client in a session: its connection is kept.
HttpAnswer AnswerFor(const std::string& sessionId, const Json& body) {
    HttpAnswer answer = Answer(body);
    answer.keptFor = sessionId;
    return answer;
}

HttpAnswer AnswerPlainly(int status, const std::string& reason) {
    HttpAnswer answer;
    answer.status = status;
    answer.body = reason;
    return answer;
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

HttpAnswer AnswerException(const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const BadRequest& fault) {
        return AnswerPlainly(400, fault.what());
    } catch (const AccountsFailure&) { // the ledger has said so
        return AnswerPlainly(503, "The service cannot read its accounts at the moment.");
    } catch (const std::exception& failure) {
        Log(std::string("error: ") + failure.what());
    } catch (...) {
        Log("error: of an unknown kind");
    }
    HttpAnswer answer = Answer({{"detail", "internal_error"}});
    answer.status = 500;
    return answer;
}

// What throws has not replied.
template <typename Operation>
void ReplyOrExplain(const HttpServer::Reply& reply, Operation operation) {
    try {
        operation();
    } catch (...) {
        reply(AnswerException(std::current_exception()));
    }
}

} // namespace

HttpApi::HttpApi(Ledger& ledger, Sessions& sessions, const std::optional<TlsFiles>& tls,
                 std::size_t sessionsAtOnce, const HttpLimits& limits)
    : ledger_(ledger), sessions_(sessions),
      server_(tls, limits,
              [this](HttpRequest request, HttpServer::Reply reply) {
                  Route(std::move(request), std::move(reply));
              }),
      desk_(1), starts_(1), exchanges_(sessionsAtOnce), ahead_(1) {}

struct HttpApi::Entry {
    std::string_view method;
    std::string_view path;
    Operation operation;
    WorkQueue HttpApi::*lane; // null: it takes no time and waits for nothing
};

void HttpApi::Route(HttpRequest request, HttpServer::Reply reply) {
    static constexpr std::array kEntries = {
        Entry{"GET", "/key/status", &HttpApi::KeyStatus, &HttpApi::desk_},
        Entry{"POST", "/session/start", &HttpApi::SessionStart, &HttpApi::starts_},
        Entry{"POST", "/session/exchange", &HttpApi::SessionExchange, &HttpApi::exchanges_},
        Entry{"POST", "/session/stop", &HttpApi::SessionStop, &HttpApi::desk_},
        Entry{"GET", "/health", &HttpApi::Health, nullptr},
    };
    const std::string_view target = request.target;
    const std::string_view path = target.substr(0, target.find('?'));
    const auto* const entry = std::ranges::find_if(kEntries, [&](const Entry& candidate) {
        return candidate.method == request.method && candidate.path == path;
    });
    if (entry == kEntries.end()) {
        return reply(AnswerPlainly(404, "There is no such operation."));
    }
    if (entry->lane == nullptr) {
        return (this->*entry->operation)(request, reply);
    }
    (this->*entry->lane)
        .Post([this, operation = entry->operation, request = std::move(request),
               reply = std::move(reply)] {
            ReplyOrExplain(reply, [&] { (this->*operation)(request, reply); });
        });
}

std::vector<RefusalCount> HttpApi::Refusals() const {
    std::vector<RefusalCount> counts;
    for (std::size_t i = 1; i < refusals_.size(); ++i) {
        counts.push_back({kRefusalAnswers[i].reason, refusals_[i]});
    }
    return counts;
}

HttpAnswer HttpApi::Refuse(Refusal refusal, const HttpRequest& request) {
    Count(refusal, request);
    const RefusalAnswer& known = AnswerFor(refusal);
    if (known.text != nullptr) {
        return AnswerPlainly(known.status, known.text);
    }
    HttpAnswer answer = Answer({{"detail", known.word}});
    answer.status = known.status;
    return answer;
}

void HttpApi::Count(Refusal refusal, const HttpRequest& request) {
    ++refusals_[static_cast<std::size_t>(refusal)];
    if (refusal == Refusal::KeyNotFound || refusal == Refusal::KeyDisabled) {
        refusedKeys_.Count(request.address);
    }
}

void HttpApi::KeyStatus(const HttpRequest& request, const HttpServer::Reply& reply) {
    const std::optional<Account> account = ledger_.Find(HashOf(KeyInTarget(request.target)));
    const Refusal refusal = RefusalOf(account);
    Count(refusal, request);
    const Account shown = account.value_or(Account{});
    const auto seconds = [](std::int64_t ms) { return static_cast<double>(ms) / 1000.0; };
    reply(Answer({{"valid", refusal == Refusal::None},
                  {"reason", AnswerFor(refusal).word},
                  {"unlimited", shown.unlimited},
                  {"remaining_seconds", seconds(shown.RemainingMs())},
                  {"total_used_seconds", seconds(shown.usedMs)},
                  {"initial_seconds", seconds(shown.initialMs)}}));
}

void HttpApi::SessionStart(const HttpRequest& request, const HttpServer::Reply& reply) {
    const RequestFields body(request.body);
    const KeyHash key = HashOf(body.Text("access_key"));
    const auto conversation = AgreeOn({body.Text("lang_a"), body.Text("lang_a_tgt")},
                                      {body.Text("lang_b"), body.Text("lang_b_tgt")});
    if (!conversation) {
        throw BadRequest("This service hears English and translates it into Spanish, Portuguese, "
                         "French or Italian. Choose English and one of these.");
    }
    const StartAnswer answer = sessions_.Start(key, *conversation);
    if (answer.refusal != Refusal::None) {
        return reply(Refuse(answer.refusal, request));
    }
    reply(AnswerFor(answer.sessionId, {{"session_id", answer.sessionId}}));
}

void HttpApi::SessionExchange(const HttpRequest& request, const HttpServer::Reply& reply) {
    struct Work {
        std::string id;
        std::vector<std::int16_t> samples;
        Sessions::Turn turn;
    };
    const RequestFields body(request.body);
    const KeyHash key = HashOf(body.Text("access_key"));
    // Shared, as what is posted can be copied.
    const auto work = std::make_shared<Work>(
        Work{body.Text("session_id"), Samples(body.Text("audio_b64")), Sessions::Turn()});
    work->turn = sessions_.TakeTurn(work->id, key);
    if (work->turn.Refused() != Refusal::None) {
        return reply(Refuse(work->turn.Refused(), request));
    }

    const auto exchange = [this, work, reply] {
        const ExchangeAnswer answer = sessions_.Exchange(work->turn, work->samples);
        work->turn = Sessions::Turn(); // before the client can send its next request
        if (answer.refusal != Refusal::None) {
            return reply(Refuse(answer.refusal, {}));
        }
        Json captions = Json::array();
        for (const Caption& caption : answer.captions) {
            captions.push_back(CaptionJson(caption, answer.languages));
        }
        reply(AnswerFor(work->id, captions));
    };
    if (!sessions_.GoesAheadOfTime(work->turn, work->samples.size())) {
        return exchange();
    }
    ahead_.Post([exchange, reply] { ReplyOrExplain(reply, exchange); });
}

void HttpApi::SessionStop(const HttpRequest& request, const HttpServer::Reply& reply) {
    const RequestFields body(request.body);
    const Refusal refusal =
        sessions_.Stop(body.Text("session_id"), HashOf(body.Text("access_key")));
    reply(refusal == Refusal::None ? Answer(Json::object()) : Refuse(refusal, request));
}

// Whether somebody new may come: what has been started goes on either way.
void HttpApi::Health(const HttpRequest& /*request*/, const HttpServer::Reply& reply) {
    const Refusal closed = sessions_.WhyClosed();
    reply(closed == Refusal::None ? AnswerPlainly(200, "ready")
                                  : AnswerPlainly(404, AnswerFor(closed).text));
}

} // namespace service
