// The program as a script meets it: its one line, its signals, its exit codes.
#include "child_process.h"
#include "file_descriptor.h"
#include "scratch_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <optional>
#include <string>
#include <vector>

namespace service {
namespace {

// One run of the program with its standard output in a pipe; killed if the test ends before it.
class Program {
public:
    explicit Program(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), KELVARIN_SERVICE_PROGRAM);
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        output_ = FileDescriptor(ends[0]);
        const FileDescriptor childEnd(ends[1]);
        process_.emplace(arguments, STDIN_FILENO, childEnd.Get());
    }

    std::string Line() {
        std::string line;
        for (char character = 0; ::read(output_.Get(), &character, 1) == 1 && character != '\n';) {
            line += character;
        }
        return line;
    }

    void Signal(int signal) const { ::kill(process_->Id(), signal); }

    // -1 when a signal ended it.
    int ExitCode() const {
        siginfo_t info{};
        ::waitid(P_PID, static_cast<id_t>(process_->Id()), &info, WEXITED | WNOWAIT);
        return info.si_code == CLD_EXITED ? info.si_status : -1;
    }

private:
    std::optional<ChildProcess> process_;
    FileDescriptor output_;
};

std::vector<std::string> ServeOn(const std::string& port, const std::string& database) {
    return {"serve", "--plain", "--port", port, "--database", database, "--decoders=1"};
}

TEST(ProgramTest, ServesUntilItIsToldToEndAndSharesItsPortWithNobody) {
    const ScratchFolder folder;
    const std::string database = folder / "accounts.db";
    for (const int signal : {SIGTERM, SIGINT}) {
        Program service(ServeOn("0", database));
        const std::string line = service.Line();
        const std::string prefix = "kelvarin-service listening on http://127.0.0.1:";
        ASSERT_TRUE(line.starts_with(prefix)) << line;
        const std::string port = line.substr(prefix.size());
        EXPECT_GT(std::stoi(port), 0);

        Program second(ServeOn(port, database));
        EXPECT_EQ(second.Line(), "");
        EXPECT_EQ(second.ExitCode(), 1);

        service.Signal(signal);
        EXPECT_EQ(service.ExitCode(), 0);
    }
}

TEST(ProgramTest, KeysAreMadeAndChangedByTheCommandsAndWrongOnesFailWithTheirCode) {
    const ScratchFolder folder;
    const std::string database = folder / "accounts.db";
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        const char* line; // first line of the output
    };
    const std::vector<Case> cases = {
        {{"keys", "add", "known", "--seconds", "90"}, 0, "known"},
        {{"keys", "add", "known"}, 1, ""},
        {{"keys", "grant", "known", "--seconds=30"}, 0, ""},
        {{"keys", "disable", "known"}, 0, ""},
        {{"keys", "list"}, 0, "known  disabled  120 s left of 120 s, 0 s used"},
        {{"keys", "enable", "known"}, 0, ""},
        {{"keys", "grant", "known", "--unlimited"}, 0, ""},
        {{"keys", "list"}, 0, "known  enabled  unlimited, 0 s used"},
        {{"keys", "disable", "nobody"}, 1, ""},
        {{"keys", "add", "not usable"}, 2, ""},
        {{"keys", "add", "--seconds", "-5"}, 2, ""},
        {{"keys", "add", "--seconds", "5", "--unlimited"}, 2, ""},
        {{"keys", "sell"}, 2, ""},
        {{"serve", "--certificate", "/none", "--key", "/none"}, 1, ""},
    };
    for (Case sample : cases) {
        sample.arguments.insert(sample.arguments.end(), {"--database", database});
        Program run(sample.arguments);
        EXPECT_EQ(run.Line(), sample.line) << testing::PrintToString(sample.arguments);
        EXPECT_EQ(run.ExitCode(), sample.exitCode) << testing::PrintToString(sample.arguments);
    }
    EXPECT_EQ(Program({}).ExitCode(), 2);
    EXPECT_EQ(Program({"--help"}).ExitCode(), 0);
}

} // namespace
} // namespace service
