#include "scripted_service.h"
#include "test_service_url.h"
#include "translation_run.h"
#include "wine.h"

#include <gtest/gtest.h>

#include <future>

namespace {

// Whoever starts anew must not wait for what the run before waits for, nor must its threads pile
// up.
TEST(TranslationRun, ThatIsSupersededWhileTheServiceDoesNotAnswerEndsAtOnce) {
    ScriptedService service;
    service.SetHandler([](const ScriptedRequest&) {
        // Where a call that waits for a silent server does not end, it is one that trickles.
        return IsWine() ? ScriptedAnswer{.body = std::string(6'000, ' '),
                                         .pace = std::chrono::milliseconds(10)}
                        : ScriptedAnswer{.delay = std::chrono::minutes(1)};
    });
    SetServiceUrl(service.Url());
    const auto translator = std::make_shared<AzureTranslator>();
    const auto run = std::make_shared<TranslationRun>(nullptr);
    translator->Configure(TEXT("k"), TEXT("a"), TEXT("a"), TEXT("b"), TEXT("b"), nullptr, nullptr);
    const WorkerContext context{translator, run, {}};
    auto worker = std::async(std::launch::async, [&context] { RunWorker(context); });
    ASSERT_TRUE(service.WaitForRequests(1));
    run->Supersede();
    EXPECT_EQ(worker.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(service.Requests().size(), 1U) << "nor is the key asked about";
}

} // namespace
