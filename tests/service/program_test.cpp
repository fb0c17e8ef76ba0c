// The program as a script meets it: its one line, its signals, its exit codes.
#include "child_process.h"
#include "file_descriptor.h"
#include "scratch_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <optional>
#include <string>
#include <string_view>
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

    std::string AllLines() {
        std::string all;
        for (std::string line = Line(); !line.empty(); line = Line()) {
            all += line + '\n';
        }
        return all;
    }

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

// A service on a file of accounts, with the commands of an administrator beside it.
class ServiceAndAdministrator {
public:
    explicit ServiceAndAdministrator(const std::string& database) : database_(database) { Start(); }

    void Start() {
        service_.emplace(ServeOn("0", database_));
        const std::string line = service_->Line();
        port_ = std::stoi(line.substr(line.rfind(':') + 1));
    }

    // SIGTERM or SIGKILL, and a start on the same file.
    void Restart(int signal) {
        service_->Signal(signal);
        EXPECT_EQ(service_->ExitCode(), signal == SIGKILL ? -1 : 0);
        Start();
    }

    std::string Keys(std::vector<std::string> words) const {
        words.insert(words.begin(), "keys");
        words.insert(words.end(), {"--database", database_});
        Program run(words);
        std::string output = run.AllLines();
        EXPECT_EQ(run.ExitCode(), 0) << testing::PrintToString(words);
        return output;
    }

    std::string Status(const std::string& key) const {
        const auto answer =
            httplib::Client("127.0.0.1", port_).Get("/key/status?access_key=" + key);
        return answer ? answer->body : "no answer";
    }

    std::string StartSession(const std::string& key) const {
        const std::string body = Post("start", key,
                                      R"("lang_a":"en-US","lang_a_tgt":"en","lang_b":"es-ES",)"
                                      R"("lang_b_tgt":"es")");
        constexpr std::string_view kBefore = R"({"session_id":")";
        return body.starts_with(kBefore) ? body.substr(kBefore.size(), 32) : body;
    }

    // Three quarters of a second of silence.
    std::string Speak(const std::string& key, const std::string& session) const {
        return Post("exchange", key,
                    R"("session_id":")" + session + R"(","audio_b64":")" +
                        std::string(32'000, 'A') + '"');
    }

private:
    std::string Post(const std::string& operation, const std::string& key,
                     const std::string& rest) const {
        httplib::Client client("127.0.0.1", port_);
        client.set_read_timeout(std::chrono::seconds(30));
        const auto answer =
            client.Post("/session/" + operation, R"({"access_key":")" + key + "\"," + rest + '}',
                        "application/json");
        return answer ? answer->body : "no answer";
    }

    std::string database_;
    std::optional<Program> service_;
    int port_ = 0;
};

constexpr const char* kAnna = "anna-0123456789abcdef";
constexpr const char* kBen = "ben-0123456789abcdef";

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(ProgramTest, TheAdministratorsChangesCountAtOnceAndSurviveAnyEndOfTheService) {
    struct Step {
        std::vector<std::string> words;
        const char* key;
        const char* status; // part of it, from then on
    };
    const std::vector<Step> steps = {
        {{"add", kAnna, "--seconds", "90"}, kAnna, R"("valid":true)"},
        {{"list"}, kAnna, R"("initial_seconds":90.0)"},
        {{"add", kBen, "--unlimited"}, kBen, R"("valid":true)"},
        {{"disable", kAnna}, kAnna, R"("reason":"key_disabled")"},
        {{"grant", kAnna, "--seconds", "30"}, kAnna, R"("initial_seconds":120.0)"},
        {{"list"}, kBen, R"("unlimited":true)"},
    };
    for (const int signal : {SIGTERM, SIGKILL}) {
        const ScratchFolder folder;
        ServiceAndAdministrator both(folder / "accounts.db");
        for (const Step& step : steps) {
            both.Keys(step.words);
            EXPECT_TRUE(Contains(both.Status(step.key), step.status))
                << testing::PrintToString(step.words) << both.Status(step.key);
            both.Restart(signal);
            EXPECT_TRUE(Contains(both.Status(step.key), step.status))
                << testing::PrintToString(step.words) << ", and then signal " << signal;
        }
    }
}

TEST(ProgramTest, ARunningSessionMeetsEachChangeAtItsNextExchange) {
    const ScratchFolder folder;
    ServiceAndAdministrator both(folder / "accounts.db");
    // More keys than one page of the file holds: what is broken then is the file.
    for (int i = 0; i < 40; ++i) {
        both.Keys({"add", "somebody-else-0123456789-" + std::to_string(i)});
    }
    both.Keys({"add", kAnna, "--seconds", "90"});
    const std::string session = both.StartSession(kAnna);
    ASSERT_EQ(session.size(), 32U) << session;
    EXPECT_TRUE(both.Speak(kAnna, session).starts_with('['));
    EXPECT_TRUE(both.Speak(kAnna, session).starts_with('['));
    both.Keys({"list"});
    EXPECT_TRUE(Contains(both.Status(kAnna), R"("total_used_seconds":1.5)"));
    both.Keys({"disable", kAnna});
    EXPECT_TRUE(Contains(both.Speak(kAnna, session), "key_disabled"));
    both.Keys({"grant", kAnna, "--unlimited"});

    both.Restart(SIGTERM);
    EXPECT_TRUE(Contains(both.Status(kAnna), R"("reason":"key_disabled")"));
    EXPECT_TRUE(Contains(both.Status(kAnna), R"("unlimited":true)"));
    EXPECT_TRUE(Contains(both.Status(kAnna), R"("total_used_seconds":1.5)"));
    const std::string list = both.Keys({"list"});
    EXPECT_EQ(std::ranges::count(list, '\n'), 41) << list;
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
        {{"keys", "add", kAnna, "--seconds", "90", "--name", "anna"}, 0, kAnna},
        {{"keys", "add", kAnna}, 1, ""},
        {{"keys", "add", "--name", "anna"}, 1, ""},
        {{"keys", "grant", "anna", "--seconds=30"}, 0, ""},
        {{"keys", "disable", "anna-"}, 0, ""},
        {{"keys", "list"},
         0,
         "anna-...  disabled  120 s left of 120 s, 0 s used, 2 sessions  anna"},
        {{"keys", "enable", kAnna}, 0, ""},
        {{"keys", "grant", "anna", "--unlimited"}, 0, ""},
        {{"keys", "grant", "anna", "--seconds", "5"}, 1, ""},
        {{"keys", "list"}, 0, "anna-...  enabled  unlimited, 0 s used, 2 sessions  anna"},
        {{"keys", "limit", "anna", "--seconds", "5", "--sessions", "1"}, 0, ""},
        {{"keys", "list"}, 0, "anna-...  enabled  5 s left of 5 s, 0 s used, 1 session  anna"},
        {{"keys", "remove", "anna"}, 0, ""},
        {{"keys", "remove", "anna"}, 1, ""},
        {{"keys", "limit", "anna"}, 2, ""},
        {{"keys", "add", "not usable, though long enough"}, 2, ""},
        {{"keys", "add", "fifteen-letters"}, 2, ""},
        {{"keys", "add", "--name", ""}, 2, ""},
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
