// The protocol over a live server in this process.
#include "accounts.h"
#include "file_descriptor.h"
#include "http_api.h"
#include "recorded_speech.h"
#include "scratch_folder.h"
#include "sessions.h"
#include "sqlite_accounts.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <openssl/evp.h>
#include <sqlite3.h>
#include <sys/socket.h>

#include <array>
#include <future>
#include <thread>

namespace service {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::ordered_json;

std::string Base64(std::span<const std::int16_t> samples) {
    const int bytes = static_cast<int>(samples.size_bytes());
    std::string text(samples.size_bytes() / 3 * 4 + 5, '\0'); // with the terminating zero
    text.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(samples.data()), bytes)));
    return text;
}

struct Answer {
    int status = 0; // 0: none came
    std::string body;
};

class HttpApiTest : public testing::Test {
protected:
    void Serve(std::size_t decoders, std::chrono::milliseconds idleLimit = 60s) {
        accounts_ = OpenSqliteAccounts(folder_ / "accounts.db");
        Add("good", false, true, 0, 0);
        Add("other", false, true, 0, 0);
        Add("used-up", false, false, 1000, 1000);
        Add("disabled", true, true, 0, 0);
        Add("short", false, false, 3000, 0);
        pool_.emplace(decoders);
        ledger_.emplace(*accounts_);
        SessionLimits limits;
        limits.withoutRequest = idleLimit;
        sessions_.emplace(*ledger_, *pool_, chains_, limits);
        api_.emplace(*ledger_, *sessions_, std::nullopt, 8);
        port_ = api_->Bind("127.0.0.1", 0);
        serving_ = std::jthread([this] { api_->Serve(); });
    }

    void Add(const char* key, bool disabled, bool unlimited, std::int64_t initialMs,
             std::int64_t usedMs) {
        accounts_->Add(HashOf(key), {key, "", disabled, unlimited, initialMs, usedMs});
    }

    std::int64_t UsedMs(const char* key) { return ledger_->Find(HashOf(key))->usedMs; }

    void TearDown() override {
        const auto start = std::chrono::steady_clock::now();
        api_->Stop();
        serving_.join();
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s)
            << "the end waited for connections that are kept alive";
    }

    std::unique_ptr<httplib::Client> Connect() const {
        auto client = std::make_unique<httplib::Client>("127.0.0.1", port_);
        client->set_keep_alive(true);
        client->set_tcp_nodelay(true);
        client->set_read_timeout(30s);
        return client;
    }

    static Answer Post(httplib::Client& client, const std::string& path, const std::string& body) {
        const auto result = client.Post(path, body, "application/json");
        return result ? Answer{result->status, result->body} : Answer{};
    }

    static Answer Start(httplib::Client& client, const std::string& key) {
        return Post(client, "/session/start",
                    Json({{"access_key", key},
                          {"machine_id", "m"},
                          {"os_version", "o"},
                          {"client_version", "1.0.0"},
                          {"lang_a", "es-ES"},
                          {"lang_a_tgt", "es"},
                          {"lang_b", "en-GB"},
                          {"lang_b_tgt", "en"}})
                        .dump());
    }

    static std::string StartedId(httplib::Client& client, const std::string& key) {
        const Answer answer = Start(client, key);
        EXPECT_EQ(answer.status, 200) << answer.body;
        return Json::parse(answer.body).value("session_id", "");
    }

    static Answer Exchange(httplib::Client& client, const std::string& id, const std::string& key,
                           std::span<const std::int16_t> samples = {}) {
        return Post(client, "/session/exchange",
                    Json({{"session_id", id},
                          {"access_key", key},
                          {"machine_id", "m"},
                          {"os_version", "o"},
                          {"client_version", "1.0.0"},
                          {"audio_b64", Base64(samples)}})
                        .dump());
    }

    static Answer Stop(httplib::Client& client, const std::string& id, const std::string& key) {
        return Post(client, "/session/stop",
                    Json({{"session_id", id}, {"access_key", key}, {"machine_id", "m"}}).dump());
    }

    const ScratchFolder folder_;
    std::unique_ptr<Accounts> accounts_;
    ChainPool chains_;
    std::optional<Ledger> ledger_;
    std::optional<DecoderPool> pool_;
    std::optional<Sessions> sessions_;
    std::optional<HttpApi> api_;
    int port_ = 0;
    std::jthread serving_;
};

TEST_F(HttpApiTest, KeyStatusAnswersAllSixFieldsForAnyTextInPlaceOfAKey) {
    Serve(1);
    const std::string unknown =
        R"({"valid":false,"reason":"key_not_found","unlimited":false,)"
        R"("remaining_seconds":0.0,"total_used_seconds":0.0,"initial_seconds":0.0})";
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"?access_key=good",
         R"({"valid":true,"reason":"","unlimited":true,)"
         R"("remaining_seconds":0.0,"total_used_seconds":0.0,"initial_seconds":0.0})"},
        {"?x=1&access_key=short",
         R"({"valid":true,"reason":"","unlimited":false,)"
         R"("remaining_seconds":3.0,"total_used_seconds":0.0,"initial_seconds":3.0})"},
        {"?access_key=used-up",
         R"({"valid":false,"reason":"quota_exceeded","unlimited":false,)"
         R"("remaining_seconds":0.0,"total_used_seconds":1.0,"initial_seconds":1.0})"},
        {"?access_key=disabled",
         R"({"valid":false,"reason":"key_disabled","unlimited":true,)"
         R"("remaining_seconds":0.0,"total_used_seconds":0.0,"initial_seconds":0.0})"},
        {"?access_key=g%6Fod", unknown}, // nothing is decoded
        {"?access_key=a\"b\\{}%zz%", unknown},
        {"?", unknown},
        {"", unknown},
        {"?no_access_key=good", unknown},
    };
    const auto client = Connect();
    client->set_url_encode(false);
    for (const auto& [query, answer] : cases) {
        const auto result = client->Get(std::string("/key/status") + query);
        ASSERT_TRUE(result) << query;
        EXPECT_EQ(result->status, 200) << query;
        EXPECT_EQ(result->body, answer) << query;
    }
}

TEST_F(HttpApiTest, ABadRequestGetsItsStatusAndAOneLineReason) {
    Serve(1);
    const auto client = Connect();
    const std::string id = StartedId(*client, "good");
    const auto exchange = [&](const std::string& audio) {
        return R"({"session_id":")" + id + R"(","access_key":"good","audio_b64":)" + audio + "}";
    };
    const std::string languages = R"("lang_a_tgt":"en","lang_b":"ja-JP","lang_b_tgt":"ja"})";
    struct Case {
        const char* path;
        std::string body;
        int status;
    };
    const std::vector<Case> cases = {
        {"/session/exchange", "", 400},
        {"/session/exchange", "[1]", 400},
        {"/session/exchange", std::string(60'000, '['), 400},
        {"/session/exchange", R"({"session_id":"0","more":{"a":"b"}})", 400},
        {"/session/exchange", "{\"session_id\":\"\xFF\"}", 400},
        {"/session/exchange", R"({"access_key":"good","audio_b64":""})", 400},
        {"/session/exchange", exchange("null"), 400},
        {"/session/exchange", exchange("\"AA*=\""), 400},
        {"/session/exchange", exchange("\"AAAA\""), 400}, // three bytes: half a sample
        {"/session/exchange", exchange('"' + std::string(262'144, 'A') + '"'), 413},
        {"/session/start", R"({"access_key":"good","lang_a":"en-US",)" + languages, 400},
        {"/session/stop", R"({"session_id":")" + id + "\"}", 400},
        {"/key/status", "{}", 404},
    };
    for (const Case& sample : cases) {
        const Answer answer = Post(*client, sample.path, sample.body);
        EXPECT_EQ(answer.status, sample.status) << sample.body.substr(0, 100);
        EXPECT_FALSE(answer.body.empty());
        EXPECT_EQ(answer.body.find('\n'), std::string::npos);
    }
    EXPECT_EQ(Exchange(*client, id, "good").body, "[]") << "the session suffered";
    EXPECT_EQ(UsedMs("good"), 0) << "audio that was not decoded was billed";
}

TEST_F(HttpApiTest, AccountsThatCannotBeReadTellNothingOfTheInside) {
    Serve(1);
    const auto client = Connect();
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open((folder_ / "accounts.db").c_str(), &database), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(database, "DROP TABLE keys", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
    const Answer answer = Start(*client, "good");
    EXPECT_EQ(answer.status, 503);
    EXPECT_THAT(answer.body, testing::Not(testing::HasSubstr("no such table")));
    EXPECT_EQ(Exchange(*client, "none", "good").status, 503) << "a 403 or 404 ends a session";
}

TEST_F(HttpApiTest, EachRefusalCarriesTheWordThatTheClientKnows) {
    Serve(1);
    const auto client = Connect();
    const auto refused = [](int status, const char* word) {
        return testing::AllOf(
            testing::Field(&Answer::status, status),
            testing::Field(&Answer::body, std::string(R"({"detail":")") + word + "\"}"));
    };
    EXPECT_THAT(Start(*client, "nobody"), refused(403, "key_not_found"));
    EXPECT_THAT(Start(*client, "disabled"), refused(403, "key_disabled"));
    EXPECT_THAT(Start(*client, "used-up"), refused(403, "quota_exceeded"));

    const std::string id = StartedId(*client, "good");
    EXPECT_EQ(id.size(), 32U);
    const Answer full = Start(*client, "other");
    EXPECT_EQ(full.status, 503);
    EXPECT_FALSE(full.body.empty());

    EXPECT_THAT(Exchange(*client, "0123", "good"), refused(404, "session_not_found"));
    EXPECT_THAT(Exchange(*client, id, "other"), refused(404, "session_not_found"));
    EXPECT_THAT(Stop(*client, id, "other"), refused(404, "session_not_found"));
    EXPECT_THAT(Exchange(*client, id, "nobody"), refused(403, "key_not_found"));
    EXPECT_EQ(Exchange(*client, id, "good").status, 200)
        << "a stranger's requests ended the session";

    accounts_->SetDisabled(HashOf("good"), true);
    EXPECT_THAT(Exchange(*client, id, "good"), refused(403, "key_disabled"));
    accounts_->SetDisabled(HashOf("good"), false);
    EXPECT_THAT(Exchange(*client, id, "good"), refused(404, "session_not_found"))
        << "a client says nothing more after a 403: the session must have ended";

    const std::string next = StartedId(*client, "other");
    EXPECT_EQ(Stop(*client, next, "other").status, 200);
    EXPECT_THAT(Exchange(*client, next, "other"), refused(404, "session_not_found"));
}

TEST_F(HttpApiTest, SpeechIsCaptionedAndBilledUntilTheQuotaIsGone) {
    Serve(1);
    const auto client = Connect();
    const std::string id = StartedId(*client, "short"); // good for 3 s
    const Recording recording = Recordings()[2];
    constexpr std::size_t kSlice = 15'999; // not whole milliseconds, and whole Base64 groups
    std::string captions;
    Answer answer;
    std::size_t slices = 0;
    for (std::size_t at = 0; at + kSlice <= recording.samples.size(); at += kSlice, ++slices) {
        answer = Exchange(*client, id, "short", std::span(recording.samples).subspan(at, kSlice));
        if (answer.status != 200) {
            break;
        }
        captions += answer.body;
    }
    EXPECT_EQ(slices, 4U); // the third leaves a millisecond
    EXPECT_EQ(answer.status, 403);
    EXPECT_EQ(answer.body, R"({"detail":"quota_exceeded"})");
    EXPECT_EQ(UsedMs("short"), 3000) << "more was decoded than the key had left";

    // The form is what a reader without a JSON parser relies on, to the byte.
    EXPECT_EQ(captions.find("[{\"original\":\""), captions.find('{') - 1);
    const std::string end = R"(","is_final":false,"source_lang":"en-GB","target_lang":"es"}])";
    for (const std::string& part : {std::string(R"(","translated":")"), end}) {
        EXPECT_NE(captions.find(part), std::string::npos) << part << " in " << captions;
    }
    EXPECT_NE(captions.find("\"is_final\":true"), std::string::npos)
        << "the last words went with the quota";
}

TEST_F(HttpApiTest, ASlowExchangeHoldsUpNobodyElse) {
    Serve(2);
    const auto first = Connect();
    const auto second = Connect();
    const std::string slow = StartedId(*first, "good");
    const std::string quick = StartedId(*second, "other");
    std::vector<std::int16_t> speech = Recordings()[0].samples;
    speech.resize(16'384); // the most that a client sends in one request
    auto working = std::async(std::launch::async,
                              [&] { return Exchange(*first, slow, "good", speech).status; });
    int answers = 0;
    while (working.wait_for(1ms) != std::future_status::ready) {
        ASSERT_EQ(Exchange(*second, quick, "other").status, 200);
        ++answers;
    }
    EXPECT_EQ(working.get(), 200);
    EXPECT_GE(answers, 3);
}

TEST_F(HttpApiTest, AClientThatDisappearsLeavesItsDecoderToTheNext) {
    Serve(1, 300ms);
    {
        const auto client = Connect();
        StartedId(*client, "good");
    }
    // Another one hangs in the middle of a request, for as long as this test runs.
    FileDescriptor hanging(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port_));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(hanging.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const std::string_view head = "POST /session/exchange HTTP/1.1\r\nContent-Length: 500\r\n\r\n{";
    ASSERT_EQ(::send(hanging.Get(), head.data(), head.size(), 0), std::ssize(head));

    const auto client = Connect();
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    Answer answer = Start(*client, "other");
    EXPECT_EQ(answer.status, 503);
    while (answer.status == 503 && std::chrono::steady_clock::now() < deadline) {
        answer = Start(*client, "other");
    }
    ASSERT_EQ(answer.status, 200) << answer.body;

    // One that goes on speaking is not taken for gone.
    const std::string id = Json::parse(answer.body)["session_id"];
    const auto end = std::chrono::steady_clock::now() + 900ms;
    while (std::chrono::steady_clock::now() < end) {
        ASSERT_EQ(Exchange(*client, id, "other").status, 200);
    }
}

} // namespace
} // namespace service
