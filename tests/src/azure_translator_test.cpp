#include "azure_translator.h"
#include "base64.h"
#include "scripted_service.h"
#include "test_service_url.h"
#include "wine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <regex>

namespace {

using Texts = std::vector<std::string>;
constexpr auto kPatience = std::chrono::seconds(15);

// What another system has is no version of Windows.
#ifdef _WIN32
const std::string kOsVersion = R"(Windows \d+\.\d+\.\d+)";
#else
const std::string kOsVersion = "unknown";
#endif

std::string Describe(const TranslationResult& result) {
    return WideToUtf8(result.original) + "|" + WideToUtf8(result.translated) + "|" +
           (result.isFinal ? "final" : "partial") + "|" + WideToUtf8(result.sourceLang) + "|" +
           WideToUtf8(result.targetLang);
}

// What the callbacks of a translator brought; they come on its threads.
class Heard {
public:
    void Add(Texts& list, const std::string& text) {
        const std::lock_guard lock(mutex_);
        list.push_back(text);
        changed_.notify_all();
    }
    bool Wait(const Texts& list, std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return list.size() >= count; });
    }
    Texts Copy(const Texts& list) {
        const std::lock_guard lock(mutex_);
        return list;
    }
    Texts results;
    Texts errors;

private:
    std::mutex mutex_; // guards the lists
    std::condition_variable changed_;
};

ScriptedAnswer Status(int status, const std::string& body = "") {
    ScriptedAnswer answer;
    answer.status = status;
    answer.body = body;
    return answer;
}

ScriptedAnswer Kind(ScriptedAnswer::Kind kind, const std::string& bytes = "") {
    ScriptedAnswer answer;
    answer.kind = kind;
    answer.body = bytes;
    return answer;
}

class Translator : public testing::Test {
protected:
    Translator() {
        SetServiceUrl(service.Url());
        service.SetHandler([this](const ScriptedRequest& request) { return Answer(request); });
        translator = std::make_unique<AzureTranslator>();
    }
    ~Translator() override { translator.reset(); }

    void Configure(const WideString& key = TEXT("key-1")) {
        translator->Configure(
            key, TEXT("zh-CN"), TEXT("zh-Hans"), TEXT("en-US"), TEXT("en"),
            [this](const TranslationResult& result) { heard.Add(heard.results, Describe(result)); },
            [this](const WideString& text) { heard.Add(heard.errors, WideToUtf8(text)); });
    }

    ScriptedAnswer Answer(const ScriptedRequest& request) {
        const std::lock_guard lock(mutex);
        if (request.target == "/session/start") {
            return start;
        }
        if (request.target != "/session/exchange") {
            return request.method == "GET" ? keyStatus : Status(200, "{}");
        }
        if (exchanges.empty()) {
            return Status(200, "[]");
        }
        const ScriptedAnswer next = exchanges.front();
        exchanges.erase(exchanges.begin());
        return next;
    }

    Texts Targets() const {
        Texts targets;
        for (const auto& request : service.Requests()) {
            targets.push_back(request.target);
        }
        return targets;
    }
    // The Base64 texts of all exchanges that carried audio.
    Texts AudioSent() const {
        Texts audio;
        for (const auto& request : service.Requests()) {
            constexpr std::string_view kKey = "\"audio_b64\":\"";
            const std::size_t found = request.body.find(kKey);
            const std::size_t first = found + kKey.size();
            if (found != std::string::npos && request.body[first] != '"') {
                audio.push_back(request.body.substr(first, request.body.find('"', first) - first));
            }
        }
        return audio;
    }
    void Push(const std::string& bytes) {
        translator->PushAudio(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                              static_cast<std::uint32_t>(bytes.size()));
    }
    static std::string Encoded(const std::string& bytes) {
        return Base64Encode(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    bool WaitForAudio(std::size_t count) const {
        const auto limit = std::chrono::steady_clock::now() + kPatience;
        for (std::size_t requests = 1; AudioSent().size() < count; ++requests) {
            if (std::chrono::steady_clock::now() > limit || !service.WaitForRequests(requests)) {
                return false;
            }
        }
        return true;
    }

    std::mutex mutex; // guards the three scripts below
    ScriptedAnswer start = Status(200, R"({"session_id":"s-1"})");
    ScriptedAnswer keyStatus = Status(200, R"({"valid":true})");
    std::vector<ScriptedAnswer> exchanges; // then 200 with []
    ScriptedService service;
    Heard heard;
    std::unique_ptr<AzureTranslator> translator;
};

// ---- The wire ----------------------------------------------------------------------------------

TEST_F(Translator, SpeaksTheProtocolByteForByteOverOneConnection) {
    Configure(TEXT("ключ"));
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(translator->Start()) << "a running session is no failure";
    Push("abcd");
    ASSERT_TRUE(WaitForAudio(1));
    EXPECT_EQ(service.ConnectionsAccepted(), 1);
    translator->Stop();

    const auto requests = service.Requests();
    ASSERT_GE(requests.size(), 3u);
    const std::string key = R"re("access_key":"ключ",)re";
    const std::string machine = R"re("machine_id":"([^"]+)")re";
    const std::string system = key + machine + R"re(,"os_version":")re" + kOsVersion +
                               R"re(","client_version":"1\.0\.0",)re";
    const std::string languages =
        R"re("lang_a":"zh-CN","lang_a_tgt":"zh-Hans","lang_b":"en-US","lang_b_tgt":"en")re";
    const std::string session = R"re("session_id":"s-1",)re";
    const auto expectBody = [](const ScriptedRequest& request, const std::string& fields) {
        EXPECT_TRUE(std::regex_match(request.body, std::regex("\\{" + fields + "\\}")))
            << request.body;
    };
    expectBody(requests[0], system + languages);
    const auto exchange = std::find_if(requests.begin(), requests.end(), [](const auto& request) {
        return request.body.find("YWJjZA==") != std::string::npos;
    });
    ASSERT_NE(exchange, requests.end());
    expectBody(*exchange, session + system + R"re("audio_b64":"YWJjZA==")re");
    expectBody(requests.back(), session + key + machine);
    EXPECT_EQ(requests.back().target, "/session/stop");
    for (const auto& request : requests) {
        EXPECT_EQ(request.method, "POST");
        EXPECT_EQ(request.Header("User-Agent"), "KelvarinClient/1.0");
        EXPECT_EQ(request.Header("Content-Type"), "application/json");
        EXPECT_EQ(request.Header("Connection"), "keep-alive");
        EXPECT_EQ(request.Header("Content-Length"), std::to_string(request.body.size()));
    }
    const auto targets = Targets();
    EXPECT_EQ(std::count(targets.begin(), targets.end(), "/session/start"), 1);
}

TEST_F(Translator, InsertsAKeyAsItStandsEvenWhereThatBreaksTheJson) {
    Configure(TEXT("a\"b\\c"));
    ASSERT_TRUE(translator->Start());
    EXPECT_EQ(service.Requests()[0].body.find(R"({"access_key":"a"b\c","machine_id":")"), 0u);
}

// ---- Start and the key -------------------------------------------------------------------------

struct Refusal {
    const char* name;
    ScriptedAnswer answer;
    Texts errors;
};

void PrintTo(const Refusal& test, std::ostream* out) {
    *out << test.name;
}

class TranslatorRefused : public Translator, public testing::WithParamInterface<Refusal> {};

TEST_P(TranslatorRefused, ReportsWhatTheServiceSaidAndLeavesNothingBehind) {
    start = GetParam().answer;
    Configure();
    EXPECT_FALSE(translator->Start());
    EXPECT_EQ(heard.Copy(heard.errors), GetParam().errors);
    Push("abcd"); // no session: dropped
    translator->Stop();
    EXPECT_EQ(Targets(), (Texts{"/session/start"})) << "nothing to stop at the service";
    start = Status(200, R"({"session_id":"s-2"})");
    EXPECT_TRUE(translator->Start());
}

INSTANTIATE_TEST_SUITE_P(
    Answers, TranslatorRefused,
    testing::Values(
        Refusal{"WithADetail", Status(403, R"({"detail":"key_disabled"})"), {"key_disabled"}},
        Refusal{"WithAnEmptyDetail", Status(403, R"({"detail":""})"), {"quota_exceeded"}},
        Refusal{"WithoutAReason", Status(403), {"quota_exceeded"}},
        Refusal{"WithAnEmptyObject", Status(403, "{}"), {"{}"}},
        Refusal{"WithoutASession", Status(200, R"({"session_id":""})"), {}},
        Refusal{"WithGarbage", Status(200, "garbage"), {}}, Refusal{"WithNoBody", Status(200), {}},
        Refusal{"ByAFault", Status(500, "internal_error"), {"Server error 500: internal_error"}},
        Refusal{"ByAMissingPage", Status(404, "?"), {"Server error 404: ?"}},
        Refusal{"ByClosing", Kind(ScriptedAnswer::Kind::CloseOnly), {"Server error 0: "}},
        Refusal{"ByNoHttp",
                Kind(ScriptedAnswer::Kind::Raw, "\x01\x02 no http\r\n\r\n"),
                {"Server error 0: "}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(Translator, TellsWhyAKeyIsNotAccepted) {
    const struct {
        ScriptedAnswer answer;
        bool valid;
        const char* reason;
    } cases[] = {
        {Status(200, R"({"valid":true})"), true, "untouched"},
        {Status(200, R"({"valid":false,"reason":"key_disabled"})"), false, "key_disabled"},
        {Status(200, R"({"valid":false})"), false, "quota_exceeded"},
        {Status(200), false, "quota_exceeded"},
        {Status(500, "{\"valid\":true}"), false, "server_error_500"},
        {Status(404), false, "server_error_404"},
        {Kind(ScriptedAnswer::Kind::CloseOnly), false, "connection_failed"},
    };
    Configure(TEXT("a&b"));
    for (const auto& [answer, valid, reason] : cases) {
        {
            const std::lock_guard lock(mutex);
            keyStatus = answer;
        }
        WideString text = TEXT("untouched");
        EXPECT_EQ(translator->CheckKey(text), valid);
        EXPECT_EQ(WideToUtf8(text), reason);
    }
    for (const auto& request : service.Requests()) {
        EXPECT_EQ(request.method, "GET");
        EXPECT_EQ(request.target, "/key/status?access_key=a&b");
        EXPECT_EQ(request.Header("Content-Type"), "application/json");
        EXPECT_EQ(request.body, "");
    }
}

TEST_F(Translator, FailsWithoutAServiceAndFindsItWhenItComesBack) {
    Configure();
    service.Stop();
    WideString reason;
    EXPECT_FALSE(translator->CheckKey(reason));
    EXPECT_EQ(reason, TEXT("connection_failed"));
    EXPECT_FALSE(translator->Start());
    EXPECT_EQ(heard.Copy(heard.errors), Texts{"Server error 0: "});
    service.Start();
    EXPECT_TRUE(translator->Start());
}

TEST_F(Translator, AnUnreadableAddressFailsTheStartQuietly) {
    SetServiceUrl("no address");
    Configure();
    EXPECT_FALSE(translator->Start());
}

// ---- Exchanges ---------------------------------------------------------------------------------

TEST_F(Translator, CutsWaitingAudioIntoSlicesAndSendsEachOnce) {
    Configure();
    ScriptedAnswer slow = Status(200, "[]");
    slow.delay = std::chrono::milliseconds(300);
    exchanges = {slow}; // the first one, of silence: audio gathers behind it
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(service.WaitForRequests(2));
    std::string audio(40000, '\0');
    for (std::size_t i = 0; i < audio.size(); ++i) {
        audio[i] = static_cast<char>(i * 31 >> 3);
    }
    Push(audio.substr(0, 1000));
    Push(audio.substr(1000));
    ASSERT_TRUE(WaitForAudio(2));
    translator->Stop();
    EXPECT_EQ(AudioSent(), (Texts{Encoded(audio.substr(0, 32768)), Encoded(audio.substr(32768))}));
}

TEST_F(Translator, AsksForResultsWhileNothingIsHeard) {
    Configure();
    exchanges = {Status(200, R"([{"original":"late"}])")};
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(heard.Wait(heard.results, 1));
    ASSERT_TRUE(service.WaitForRequests(4));
    const auto requests = service.Requests();
    EXPECT_NE(requests[2].body.find(R"("audio_b64":""})"), std::string::npos);
}

TEST_F(Translator, DeliversTheResultsOfAResponseInTheirOrder) {
    Configure();
    exchanges = {Status(200,
                        R"({"results":[{"original":"Guten","translated":"Good","is_final":false,)"
                        R"("source_lang":"de-DE","target_lang":"en"},)"
                        R"({"original":"","translated":""},{"n":1},)"
                        R"({"original":"Tag 中","translated":"","is_final":true},)"
                        R"({"original":"","translated":"day","is_final":1}]})")};
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(heard.Wait(heard.results, 3));
    translator->Stop();
    EXPECT_EQ(heard.Copy(heard.results),
              (Texts{"Guten|Good|partial|de-DE|en", "Tag 中||final||", "|day|partial||"}));
}

struct PassingFailure {
    const char* name;
    ScriptedAnswer answer;
};

void PrintTo(const PassingFailure& test, std::ostream* out) {
    *out << test.name;
}

class TranslatorFailing : public Translator, public testing::WithParamInterface<PassingFailure> {};

// A failed exchange costs its own audio and is never repeated; what comes later goes out.
TEST_P(TranslatorFailing, GoesOnAfterAFailedExchange) {
    Configure();
    ASSERT_TRUE(translator->Start());
    {
        const std::lock_guard lock(mutex);
        exchanges = {GetParam().answer};
    }
    ASSERT_TRUE(service.WaitForRequests(2)); // the failure has been read
    {
        const std::lock_guard lock(mutex);
        exchanges.push_back(Status(200, R"([{"original":"back"}])"));
    }
    Push("later");
    ASSERT_TRUE(heard.Wait(heard.results, 1));
    ASSERT_TRUE(WaitForAudio(1));
    translator->Stop();
    EXPECT_EQ(AudioSent(), Texts{Encoded("later")});
    EXPECT_EQ(heard.Copy(heard.errors), Texts{});
    EXPECT_EQ(Targets().back(), "/session/stop");
}

INSTANTIATE_TEST_SUITE_P(
    Answers, TranslatorFailing,
    testing::Values(
        PassingFailure{"Status500", Status(500, "internal_error")},
        PassingFailure{"EmptyBody", Status(200)}, PassingFailure{"Garbage", Status(200, "{]\x80")},
        PassingFailure{"TenMegabytes", Status(200, "[" + std::string(10'000'000, 'x') + "]")},
        PassingFailure{"Closed", Kind(ScriptedAnswer::Kind::CloseOnly)},
        PassingFailure{"HalfABody", Kind(ScriptedAnswer::Kind::Raw,
                                         "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n[{\"ori")},
        PassingFailure{"NoHttp", Kind(ScriptedAnswer::Kind::Raw, "what?\r\n\r\n")}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(Translator, SendsTheAudioOfAnExchangeThatFailedNeverAgain) {
    Configure();
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(service.WaitForRequests(2));
    {
        const std::lock_guard lock(mutex);
        // Whichever exchange is next, with or without the audio, fails, and so do some behind it.
        exchanges = std::vector<ScriptedAnswer>(5, Kind(ScriptedAnswer::Kind::CloseOnly));
    }
    Push("lost");
    ASSERT_TRUE(WaitForAudio(1));
    Push("kept");
    ASSERT_TRUE(WaitForAudio(2));
    translator->Stop();
    EXPECT_EQ(AudioSent(), (Texts{Encoded("lost"), Encoded("kept")}));
}

TEST_F(Translator, CarriesOnWhenTheServiceVanishesAndComesBack) {
    Configure();
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(service.WaitForRequests(2));
    service.Stop();
    service.Start();
    const std::size_t before = service.Requests().size();
    ASSERT_TRUE(service.WaitForRequests(before + 1));
    Push("heard again");
    ASSERT_TRUE(WaitForAudio(1));
    EXPECT_EQ(AudioSent(), Texts{Encoded("heard again")});
    translator->Stop();
    EXPECT_EQ(heard.Copy(heard.errors), Texts{});
}

struct Ending {
    const char* name;
    ScriptedAnswer answer;
    const char* error;
    const char* traced;
};

void PrintTo(const Ending& test, std::ostream* out) {
    *out << test.name;
}

class TranslatorEnded : public Translator, public testing::WithParamInterface<Ending> {};

TEST_P(TranslatorEnded, ReportsOnceAndSaysNothingMoreToTheService) {
    testing::internal::CaptureStderr();
    exchanges = {GetParam().answer};
    Configure();
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(heard.Wait(heard.errors, 1));
    EXPECT_FALSE(service.WaitForRequests(3, std::chrono::milliseconds(300))) << "it had ended";
    translator->Stop();
    translator->Stop();
    Push("dropped");
    const std::string trace = testing::internal::GetCapturedStderr();
    EXPECT_EQ(heard.Copy(heard.errors), Texts{GetParam().error});
    EXPECT_NE(trace.find(GetParam().traced), std::string::npos) << trace;
    EXPECT_EQ(Targets(), (Texts{"/session/start", "/session/exchange"}));
}

INSTANTIATE_TEST_SUITE_P(
    Answers, TranslatorEnded,
    testing::Values(Ending{"Forbidden", Status(403, R"({"detail":"key_disabled"})"), "key_disabled",
                           "[PROXY] ExchangeLoop 403 detail=key_disabled "},
                    Ending{"QuotaGone", Status(403), "quota_exceeded",
                           "[PROXY] ExchangeLoop 403 detail=quota_exceeded "},
                    Ending{"SessionGone", Status(404, R"({"detail":"no such"})"),
                           "session_not_found", "[PROXY] ExchangeLoop 404 session_not_found\n"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(Translator, EndsWithoutCallbacksToo) {
    exchanges = {Status(200, R"([{"original":"unheard"}])"), Status(403)};
    translator->Configure(TEXT("k"), TEXT(""), TEXT(""), TEXT(""), TEXT(""), nullptr, nullptr);
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(service.WaitForRequests(3));
    translator->Stop();
    EXPECT_EQ(AudioSent(), Texts{});
}

// ---- Requests that are given up ----------------------------------------------------------------

struct Stall {
    const char* name;
    ScriptedAnswer answer; // of a minute
};

void PrintTo(const Stall& test, std::ostream* out) {
    *out << test.name;
}

class TranslatorStalled : public Translator, public testing::WithParamInterface<Stall> {
protected:
    void SetUp() override {
        if (GetParam().answer.pace.count() == 0 && IsWine()) {
            GTEST_SKIP() << "a call that waits for a silent server does not end there";
        }
    }
    // The scripts keep the service at its answer for a minute.
    static constexpr auto kSoon = std::chrono::seconds(10);
};

TEST_P(TranslatorStalled, StopsAtOnceAndStillTellsTheService) {
    exchanges = {GetParam().answer};
    Configure();
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(service.WaitForRequests(2));
    const auto began = std::chrono::steady_clock::now();
    translator->Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - began, kSoon);
    EXPECT_EQ(Targets(), (Texts{"/session/start", "/session/exchange", "/session/stop"}));
    EXPECT_EQ(service.ConnectionsAccepted(), 2) << "the stalled connection is of no use";
    EXPECT_EQ(heard.Copy(heard.results), Texts{});
    EXPECT_EQ(heard.Copy(heard.errors), Texts{});
}

TEST_P(TranslatorStalled, AStartThatIsGivenUpEndsAtOnceAndAsksNothingMore) {
    start = GetParam().answer;
    Configure();
    auto started = std::async(std::launch::async, [this] { return translator->Start(); });
    ASSERT_TRUE(service.WaitForRequests(1));
    translator->GiveUp();
    ASSERT_EQ(started.wait_for(kSoon), std::future_status::ready);
    EXPECT_FALSE(started.get());
    WideString reason;
    EXPECT_FALSE(translator->CheckKey(reason));
    translator->Stop();
    EXPECT_EQ(Targets(), Texts{"/session/start"});
}

INSTANTIATE_TEST_SUITE_P(Answers, TranslatorStalled,
                         testing::Values(Stall{"Silent", {.delay = std::chrono::minutes(1)}},
                                         Stall{"Trickling",
                                               {.body = std::string(6'000, ' '),
                                                .pace = std::chrono::milliseconds(10)}}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(Translator, ASessionThatIsGivenUpIsStillClosedAtTheService) {
    Configure();
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(service.WaitForRequests(2));
    translator->GiveUp();
    translator->Stop();
    EXPECT_EQ(Targets().back(), "/session/stop");
}

TEST_F(Translator, IgnoresARefusalThatArrivesAfterStop) {
    ScriptedAnswer late = Status(403, R"({"detail":"key_disabled"})");
    late.delay = std::chrono::milliseconds(30); // within what an exchange in flight is let have
    exchanges = {late};
    Configure();
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(service.WaitForRequests(2));
    translator->Stop();
    EXPECT_EQ(heard.Copy(heard.errors), Texts{});
    EXPECT_EQ(Targets().back(), "/session/stop");
}

TEST_F(Translator, DropsTheOldestAudioBeyondTenMinutesAndTracesIt) {
    ScriptedAnswer slow = Status(200, "[]");
    slow.delay = std::chrono::milliseconds(500);
    exchanges = {slow};
    Configure();
    ASSERT_TRUE(translator->Start());
    ASSERT_TRUE(service.WaitForRequests(2));
    testing::internal::CaptureStderr();
    Push("oldest");
    const std::string minute(60 * 32000, 'm');
    for (int i = 0; i < 10; ++i) {
        Push(minute);
    }
    const std::string trace = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(std::regex_match(
        trace, std::regex(R"(\[[0-9:.]+\] \[PROXY\] PushAudio: ten minutes [^\n]+\n)")))
        << trace;
    ASSERT_TRUE(WaitForAudio(1));
    translator->Stop();
    EXPECT_EQ(AudioSent()[0], Encoded(std::string(32768, 'm')));
}

} // namespace
