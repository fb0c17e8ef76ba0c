#include "http_caller.h"
#include "scripted_service.h"
#include "wine.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr HttpTimeOuts kAmple{
    .resolveMs = 10'000, .connectMs = 10'000, .sendMs = 10'000, .receiveMs = 10'000};
constexpr auto kSoon = std::chrono::seconds(10); // less than any answer here takes by itself

class Caller : public testing::Test {
protected:
    Caller() {
        service.SetHandler([this](const ScriptedRequest& request) {
            return request.target == "/slow" ? slow : ScriptedAnswer{.body = "prompt"};
        });
        EXPECT_EQ(Call(caller, TEXT("/"), kAmple), 200U); // what is slow the first time only
    }

    // -1 for none.
    int Call(HttpCaller& by, const WCHAR* path, const HttpTimeOuts& timeOuts) {
        InternetHandle request(WinHttpOpenRequest(connection.get(), TEXT("POST"), path, nullptr,
                                                  WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                                  0));
        const auto status =
            by.Call(std::move(request), timeOuts, TEXT("X-Test: 1\r\n"), "body", response);
        return status ? static_cast<int>(*status) : -1;
    }

    ScriptedAnswer slow; // to "/slow"; set while nothing asks for it
    ScriptedService service;
    InternetHandle session = OpenInternet();
    InternetHandle connection{WinHttpConnect(session.get(), TEXT("127.0.0.1"), service.Port(), 0)};
    std::string response;
    HttpCaller caller;
};

TEST_F(Caller, ASlowButSteadyAnswerArrivesWhole) {
    slow = {.body = std::string(60, 'x'), .pace = milliseconds(20)};
    EXPECT_EQ(Call(caller, TEXT("/slow"),
                   {.resolveMs = 10'000, .connectMs = 10'000, .sendMs = 10'000, .receiveMs = 600}),
              200U);
    EXPECT_EQ(response, slow.body);
    EXPECT_EQ(service.Requests().back().Header("X-Test"), "1");
    EXPECT_EQ(service.Requests().back().body, "body");
}

// Each byte comes well within the time-out of receiving.
TEST_F(Caller, AnAnswerThatTricklesIsGivenUpAtTheSumOfTheTimeOuts) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 6000\r\n\r\n";
    const struct {
        const char* of;
        bool isOneCall; // whose wait Wine does not end
        ScriptedAnswer answer;
    } rows[] = {
        {"head",
         true,
         {.kind = ScriptedAnswer::Kind::Raw, .body = head, .pace = milliseconds(300)}},
        {"body", false, {.body = std::string(6'000, 'x'), .pace = milliseconds(20)}},
    };
    constexpr HttpTimeOuts kShort{
        .resolveMs = 150, .connectMs = 150, .sendMs = 150, .receiveMs = 400};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.of);
        if (row.isOneCall && IsWine()) {
            continue;
        }
        slow = row.answer;
        const auto began = Clock::now();
        EXPECT_EQ(Call(caller, TEXT("/slow"), kShort), -1);
        EXPECT_EQ(response, "") << "half an answer is none";
        EXPECT_GE(Clock::now() - began, milliseconds(850 - 5));
        EXPECT_LT(Clock::now() - began, kSoon);
        EXPECT_EQ(Call(caller, TEXT("/"), kAmple), 200) << "the next one has its own time";
    }
}

TEST_F(Caller, GivenUpEndsTheRequestUnderWayAndAllBehindIt) {
    slow = {.delay = std::chrono::minutes(1)};
    if (IsWine()) { // where a call that waits for a silent server does not end
        slow = {.body = std::string(6'000, 'x'), .pace = milliseconds(10)};
    }
    auto status =
        std::async(std::launch::async, [this] { return Call(caller, TEXT("/slow"), kAmple); });
    ASSERT_TRUE(service.WaitForRequests(2));
    caller.GiveUp();
    ASSERT_EQ(status.wait_for(kSoon), std::future_status::ready);
    EXPECT_EQ(status.get(), -1);

    EXPECT_EQ(Call(caller, TEXT("/"), kAmple), -1);
    EXPECT_EQ(service.Requests().size(), 2U) << "not even sent";
    HttpCaller other;
    EXPECT_EQ(Call(other, TEXT("/"), kAmple), 200);
    EXPECT_EQ(response, "prompt");
}

TEST_F(Caller, MayBeGivenUpAtAnyMoment) {
    slow = {.body = "late", .delay = milliseconds(100)}; // when one that was given up is ended
    for (int round = 0; round < 20; ++round) {
        HttpCaller mortal;
        const auto end = std::async(std::launch::async, [&mortal, round] {
            std::this_thread::sleep_for(std::chrono::microseconds(200 * round)); // "any moment"
            mortal.GiveUp();
        });
        const int status = Call(mortal, TEXT("/slow"), kAmple);
        EXPECT_EQ(response, status == 200 ? "late" : "");
    }
    EXPECT_EQ(Call(caller, TEXT("/"), kAmple), 200);
}

} // namespace
