// What happens when the system cannot start a thread. This program takes the place of
// pthread_create, which nothing but the standard library calls here.
#include "audio_capture.h"
#include "azure_translator.h"
#include "scripted_endpoints.h"
#include "scripted_service.h"
#include "test_service_url.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {
// Threads that may still be started by this thread, before one is refused; negative: any number.
thread_local int allowance = -1;
} // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*body)(void*), void* argument) {
    if (allowance == 0) {
        return EAGAIN;
    }
    if (allowance > 0) {
        --allowance;
    }
    static const auto real =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return real(thread, attributes, body, argument);
}

namespace {

TEST(ThreadRefusal, ACaptureThatGetsNoThreadFailsWholeAndCanBeTriedAgain) {
    ScriptedEndpoints scene;
    ScriptedEndpoint& speaker = scene.Add(TEXT("speaker"), eRender);
    ScriptedEndpoint& mic = scene.Add(TEXT("mic"), eCapture);
    AudioCapture capture;
    auto held = std::make_shared<int>(0);
    const PcmCallback callback = [held](const std::uint8_t*, std::uint32_t) {};

    const auto starts = std::vector<std::function<bool()>>{
        [&] { return capture.StartLoopback(TEXT(""), callback); },
        [&] { return capture.StartMic(TEXT(""), callback); },
        [&] { return capture.StartMixed(TEXT(""), TEXT(""), callback); },
    };
    const int threads[] = {1, 1, 3};
    for (std::size_t mode = 0; mode < starts.size(); ++mode) {
        for (int allowed = 0; allowed < threads[mode]; ++allowed) {
            allowance = allowed;
            EXPECT_FALSE(starts[mode]()) << "mode " << mode << ", threads " << allowed;
            allowance = -1;
            EXPECT_EQ(held.use_count(), 2) << "the start kept the callback";
            EXPECT_EQ(speaker.Running() + mic.Running(), 0);
            EXPECT_EQ(ScriptedEndpoints::LiveObjects(), 0);
        }
        EXPECT_TRUE(starts[mode]());
        capture.Stop();
    }
}

TEST(ThreadRefusal, ASessionThatGetsNoThreadIsClosedAtTheService) {
    ScriptedService service;
    service.SetHandler([](const ScriptedRequest&) {
        ScriptedAnswer answer;
        answer.body = R"({"session_id":"s-1"})";
        return answer;
    });
    SetServiceUrl(service.Url());
    AzureTranslator translator;
    translator.Configure(TEXT("k"), TEXT("a"), TEXT("a"), TEXT("b"), TEXT("b"), nullptr, nullptr);
    allowance = 0;
    EXPECT_FALSE(translator.Start());
    allowance = -1;
    ASSERT_EQ(service.Requests().size(), 2u);
    EXPECT_EQ(service.Requests()[1].target, "/session/stop");
    EXPECT_TRUE(translator.Start());
}

} // namespace
