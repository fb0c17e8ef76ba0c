#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

TEST(Events, AnAutoResetEventLetsOneWaiterThroughForEachSet) {
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::atomic<int> through{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back([&] {
            if (WaitForSingleObject(event, 20000) == WAIT_OBJECT_0) {
                ++through;
            }
        });
    }
    for (int sets = 1; sets <= 4; ++sets) {
        SetEvent(event);
        while (through < sets) {
            std::this_thread::yield();
        }
        EXPECT_EQ(through, sets);
    }
    for (auto& waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    SetEvent(event);
    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 1), WAIT_TIMEOUT) << "two sets of a set event are one";
    EXPECT_TRUE(CloseHandle(event));
}

TEST(Events, AManualResetEventStaysSetUntilItIsReset) {
    HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    ResetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(CloseHandle(event));
}

TEST(Events, NullHandlesAreRefused) {
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    EXPECT_FALSE(SetEvent(nullptr));
    EXPECT_FALSE(ResetEvent(nullptr));
    EXPECT_FALSE(CloseHandle(nullptr));
}

TEST(SystemFacts, TheComputersNameIsTheHostsNameWithinItsRoom) {
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    WCHAR name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = std::size(name);
    ASSERT_TRUE(GetComputerNameW(name, &size));
    std::string narrow(name, name + size);
    EXPECT_EQ(std::string(host).substr(0, narrow.size()), narrow);
    size = 1;
    EXPECT_FALSE(GetComputerNameW(name, &size));
}

TEST(SystemFacts, OnlyTheNativeModulesVersionCallIsThere) {
    HMODULE native = GetModuleHandleW(TEXT("ntdll.dll"));
    ASSERT_NE(native, nullptr);
    EXPECT_EQ(GetModuleHandleW(TEXT("other.dll")), nullptr);
    EXPECT_EQ(GetProcAddress(native, "NtClose"), nullptr);
    EXPECT_EQ(GetProcAddress(nullptr, "RtlGetVersion"), nullptr);
    EXPECT_NE(GetProcAddress(native, "RtlGetVersion"), nullptr);
}

TEST(SystemFacts, TheLocalTimeIsTheClocksTime) {
    const auto before = std::chrono::system_clock::now();
    SYSTEMTIME now{};
    GetLocalTime(&now);
    const std::time_t seconds = std::chrono::system_clock::to_time_t(before);
    tm local{};
    localtime_r(&seconds, &local);
    EXPECT_EQ(now.wYear, local.tm_year + 1900);
    EXPECT_EQ(now.wMonth, local.tm_mon + 1);
    EXPECT_LT(now.wMilliseconds, 1000);
}

} // namespace
