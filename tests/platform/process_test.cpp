#include "platform/forked_child.h"
#include "service/scratch_folder.h"
#include "support/environment_setting.h"

#include <windows.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

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

TEST(SystemFacts, TheComputersNameIsTheHostsNameWithinItsRoom) {
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    WCHAR name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = std::size(name);
    ASSERT_TRUE(GetComputerNameW(name, &size));
    std::string narrow(name, name + size);
    EXPECT_EQ(std::string(host).substr(0, narrow.size()), narrow);
}

class Mutexes : public testing::Test {
protected:
    static constexpr LPCWSTR kName = TEXT("KelvarinTest_SingleInstance");

    // Whether this is the first to take the name; 2 when it cannot be taken at all.
    static int TakesName(HANDLE* mutex = nullptr) {
        SetLastError(ERROR_MORE_DATA);
        const HANDLE taken = CreateMutexW(nullptr, TRUE, kName);
        const DWORD error = GetLastError();
        if (mutex != nullptr) {
            *mutex = taken;
        }
        return taken == nullptr ? 2 : static_cast<int>(error != ERROR_ALREADY_EXISTS);
    }
    static int TakesNameAndLeaves() {
        HANDLE mutex = nullptr;
        const int result = TakesName(&mutex);
        CloseHandle(mutex);
        return result;
    }

    const ScratchFolder folder_;
    const EnvironmentSetting runtime_{"XDG_RUNTIME_DIR", folder_.Path().string()};
};

TEST_F(Mutexes, ASecondProcessSeesTheFirstUntilThatIsKilled) {
    ForkedChild first([](int told) {
        ForkedChild::Tell(told, TakesName());
        return pause();
    });
    ASSERT_EQ(first.Told(), 1);
    HANDLE second = nullptr;
    EXPECT_EQ(TakesName(&second), 0);
    ASSERT_NE(second, nullptr);
    EXPECT_FALSE(ReleaseMutex(second)) << "it owns nothing";
    EXPECT_TRUE(CloseHandle(second));
    EXPECT_EQ(TakesNameAndLeaves(), 0) << "a second one that leaves must not take the name along";
    first.Kill();
    EXPECT_EQ(TakesNameAndLeaves(), 1);
}

TEST_F(Mutexes, TheNameIsFreeWithTheHandleAlthoughAStartedProgramStillRuns) {
    HANDLE mutex = nullptr;
    ASSERT_EQ(TakesName(&mutex), 1);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    struct stat facts {};
    ASSERT_EQ(stat((folder_ / "KelvarinTest_SingleInstance.lock").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, mode_t{0600});

    ForkedChild program([](int told) {
        const std::string command = "printf 1234 >&" + std::to_string(told) + "; exec cat";
        return execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    });
    ASSERT_NE(program.Told(), -1);
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(TakesNameAndLeaves(), 0) << "released, but not closed";
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_TRUE(CloseHandle(mutex));
    EXPECT_EQ(TakesNameAndLeaves(), 1);
}

TEST_F(Mutexes, AFolderThatIsNotTheUsersOwnIsNotUsed) {
    const ScratchFolder temporary;
    const EnvironmentSetting setting("TMPDIR", temporary.Path().string());
    const std::string own =
        (temporary / ("kelvarin-" + std::to_string(geteuid())).c_str()).string();
    chmod(folder_.Path().c_str(), 0777);
    EXPECT_EQ(TakesNameAndLeaves(), 1);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "KelvarinTest_SingleInstance.lock"));
    struct stat facts {};
    ASSERT_EQ(stat(own.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, mode_t{0700});

    chmod(own.c_str(), 0777);
    EXPECT_EQ(TakesName(), 2) << "somebody else could have put the lock there";
}

TEST_F(Mutexes, ANameThatIsNoFilesNameIsRefused) {
    for (LPCWSTR name : {LPCWSTR{nullptr}, TEXT(""), TEXT("../x"), TEXT("Local\\x")}) {
        SetLastError(ERROR_ALREADY_EXISTS);
        EXPECT_EQ(CreateMutexW(nullptr, TRUE, name), nullptr);
        EXPECT_NE(GetLastError(), ERROR_ALREADY_EXISTS) << "it would pass for a second start";
    }
}

TEST(Console, IsThereWhenStderrLeadsToSomebody) {
    int pipeEnds[2] = {};
    int socketEnds[2] = {};
    ASSERT_EQ(pipe(pipeEnds), 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, socketEnds), 0);
    const ScratchFolder folder;
    const int file = open((folder / "trace").c_str(), O_CREAT | O_WRONLY, 0600);
    const int null = open("/dev/null", O_WRONLY);
    const int kept = dup(STDERR_FILENO);
    const auto attaches = [kept](int descriptor) {
        descriptor < 0 ? close(STDERR_FILENO) : dup2(descriptor, STDERR_FILENO);
        const BOOL attached = AttachConsole(ATTACH_PARENT_PROCESS);
        dup2(kept, STDERR_FILENO);
        return attached;
    };
    EXPECT_TRUE(attaches(pipeEnds[1]));
    EXPECT_TRUE(attaches(file));
    EXPECT_FALSE(attaches(null));
    EXPECT_FALSE(attaches(socketEnds[0])) << "the session's journal";
    EXPECT_FALSE(attaches(-1));
    for (const int descriptor :
         {pipeEnds[0], pipeEnds[1], socketEnds[0], socketEnds[1], file, null, kept}) {
        close(descriptor);
    }
}

// The program of entry_probe.cpp, started with the descriptors 0 to 2 closed.
TEST(Entry, AFileNeverGetsTheDescriptorOfAStandardStream) {
    ForkedChild program([](int told) {
        const int number = fcntl(told, F_DUPFD, 10);
        for (int descriptor = 0; descriptor < 10; ++descriptor) {
            close(descriptor);
        }
        const EnvironmentSetting setting("KELVARIN_PROBE_REPORT", std::to_string(number));
        return execl(KELVARIN_ENTRY_PROBE, "probe", "--argument", nullptr);
    });
    EXPECT_GT(program.Told(), STDERR_FILENO);
    EXPECT_EQ(program.Told(), EPIPE) << "a broken pipe must be a failed write, not the end";
    EXPECT_EQ(program.Told(), -1);
    EXPECT_EQ(program.Wait(), 7) << "what wWinMain returned";
}

} // namespace
