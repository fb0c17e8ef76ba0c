// The program as a script meets it: its one line, its signals, its exit codes.
#include "accounts_place.h"
#include "child_process.h"
#include "file_descriptor.h"
#include "scratch_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace service {
namespace {

// One run of the program with its standard output in a pipe; killed if the test ends before it.
class Program {
public:
    explicit Program(std::vector<std::string> arguments, int input = STDIN_FILENO) {
        arguments.insert(arguments.begin(), KELVARIN_SERVICE_PROGRAM);
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        output_ = FileDescriptor(ends[0]);
        const FileDescriptor childEnd(ends[1]);
        process_.emplace(arguments, input, childEnd.Get());
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

// A service on a file of accounts, or with what else it is told, and the commands of an
// administrator beside it.
class ServiceAndAdministrator {
public:
    explicit ServiceAndAdministrator(const std::string& database,
                                     std::vector<std::string> more = {})
        : database_(database), more_(std::move(more)) {
        Start();
    }

    void Start() {
        std::vector<std::string> words = ServeOn("0", database_);
        words.insert(words.end(), more_.begin(), more_.end());
        service_.emplace(words);
        const std::string line = service_->Line();
        port_ = std::stoi(line.substr(line.rfind(':') + 1));
    }

    void Signal(int signal) const { service_->Signal(signal); }
    int ExitCode() const { return service_->ExitCode(); }

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
        return Get("/key/status?access_key=" + key);
    }

    std::string Get(const std::string& path) const {
        const auto answer = httplib::Client("127.0.0.1", port_).Get(path);
        return answer ? answer->body : "no answer";
    }

    std::string StartSession(const std::string& key) const {
        const std::string body = Post("start", key,
                                      R"("lang_a":"en-US","lang_a_tgt":"en","lang_b":"es-ES",)"
                                      R"("lang_b_tgt":"es")");
        constexpr std::string_view kBefore = R"({"session_id":")";
        return body.starts_with(kBefore)
                   ? body.substr(kBefore.size(), body.rfind('"') - kBefore.size())
                   : body;
    }

    void StopSession(const std::string& key, const std::string& session) const {
        Post("stop", key, R"("session_id":")" + session + '"');
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
    std::vector<std::string> more_;
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

TEST(ProgramTest, AKillUnderLoadLosesASecondOfBillingAtMost) {
    using namespace std::chrono_literals;
    using Clock = std::chrono::steady_clock;
    constexpr double kSpoken = 0.75; // seconds with each exchange
    // To find what there is to store and to store it takes a moment, too.
    constexpr auto kBound = 1500ms;
    const ScratchFolder folder;
    ServiceAndAdministrator both(folder / "accounts.db");
    both.Keys({"add", kAnna});
    double usedBefore = 0;
    for (const auto lifetime : {2500ms, 3100ms, 2200ms}) {
        const std::string session = both.StartSession(kAnna);
        std::vector<Clock::time_point> answered;
        const auto begun = Clock::now();
        while (Clock::now() - begun < lifetime) {
            ASSERT_TRUE(both.Speak(kAnna, session).starts_with('['));
            answered.push_back(Clock::now());
        }
        const auto killed = Clock::now();
        both.Restart(SIGKILL);
        const std::string status = both.Status(kAnna);
        constexpr std::string_view kUsed = R"("total_used_seconds":)";
        const double used = std::stod(status.substr(status.find(kUsed) + kUsed.size()));
        const auto safe = std::ranges::count_if(
            answered, [&](Clock::time_point time) { return time < killed - kBound; });
        EXPECT_GE(used - usedBefore, kSpoken * static_cast<double>(safe));
        EXPECT_LE(used - usedBefore, kSpoken * static_cast<double>(answered.size()));
        EXPECT_GT(safe, 0);
        usedBefore = used;
    }
}

TEST(ProgramTest, TwoServicesShareADatabaseAndOneIsDrained) {
    const ScratchFolder folder;
    const AccountsPlace place(Database::Postgres);
    const std::string file = folder / "unused.db";
    ServiceAndAdministrator first(file, {"--accounts", place.Url(), "--instance", "a"});
    ServiceAndAdministrator second(file, {"--accounts", place.Url(), "--instance=b"});
    Program add({"keys", "add", kAnna, "--accounts", place.Url(), "--seconds", "90"});
    EXPECT_EQ(add.ExitCode(), 0);
    const std::string one = first.StartSession(kAnna);
    const std::string other = second.StartSession(kAnna);
    EXPECT_TRUE(one.ends_with(".a")) << one;
    EXPECT_TRUE(other.ends_with(".b")) << other;
    EXPECT_EQ(first.Get("/health"), "ready");
    EXPECT_TRUE(first.Speak(kAnna, one).starts_with('['));

    first.Signal(SIGUSR1);
    while (first.Get("/health") == "ready") { // until it has come
    }
    EXPECT_TRUE(Contains(first.StartSession(kAnna), "stopped"));
    EXPECT_TRUE(first.Speak(kAnna, one).starts_with('[')) << "a session was cut";
    EXPECT_TRUE(second.Speak(kAnna, other).starts_with('['));
    first.StopSession(kAnna, one);
    EXPECT_EQ(first.ExitCode(), 0);
    second.Signal(SIGTERM);
    EXPECT_EQ(second.ExitCode(), 0);

    Program list({"keys", "list", "--accounts", place.Url()});
    EXPECT_EQ(list.Line(), "anna-...  enabled  87 s left of 90 s, 2 s used, 2 sessions");
    EXPECT_FALSE(std::filesystem::exists(file));
}

// Everything it keeps has its place: a temporary folder that is full, or missing, is none of it.
TEST(ProgramTest, NoTemporaryFolderIsNeeded) {
    const ScratchFolder folder;
    ::setenv("TMPDIR", (folder / "missing").c_str(), 1);
    ::setenv("SQLITE_TMPDIR", (folder / "missing").c_str(), 1);
    const ServiceAndAdministrator both(folder / "accounts.db");
    both.Keys({"add", kAnna});
    const std::string session = both.StartSession(kAnna);
    EXPECT_TRUE(both.Speak(kAnna, session).starts_with('[')) << session;
    ::unsetenv("TMPDIR");
    ::unsetenv("SQLITE_TMPDIR");
}

TEST(ProgramTest, AKeyCanComeByStandardInput) {
    const ScratchFolder folder;
    const std::string database = folder / "accounts.db";
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const FileDescriptor input(ends[0]);
    {
        const FileDescriptor writing(ends[1]);
        const std::string line = std::string(kAnna) + '\n';
        ASSERT_EQ(::write(writing.Get(), line.data(), line.size()), std::ssize(line));
    }
    Program add({"keys", "add", "-", "--database", database}, input.Get());
    EXPECT_EQ(add.AllLines(), "") << "a key that was handed in was shown";
    EXPECT_EQ(add.ExitCode(), 0);
    Program disable({"keys", "disable", kAnna, "--database", database});
    EXPECT_EQ(disable.ExitCode(), 0);
}

// A service with a file of settings, on TLS.
class ProgramSettingsTest : public testing::Test {
protected:
    void Write(const std::string& folder, const std::string& more) const {
        std::ofstream(file_) << "# a comment\nADDRESS=127.0.0.1\nDECODERS=1\nCERTIFICATE=\""
                             << (folder_ / (folder + "/server.pem").c_str()).string()
                             << "\"\nKEY=" << (folder_ / (folder + "/server.key").c_str()).string()
                             << '\n'
                             << more;
    }

    void SetUp() override {
        for (const char* const name : {"former", "later"}) {
            EXPECT_EQ(Program({"certificate", folder_ / name}).ExitCode(), 0);
        }
        Program({"keys", "add", kAnna, "--database", folder_ / "accounts.db"}).ExitCode();
    }

    std::unique_ptr<httplib::SSLClient> Connect(int port, const char* authority) const {
        auto client = std::make_unique<httplib::SSLClient>("127.0.0.1", port);
        client->set_ca_cert_path((folder_ / authority / "ca.pem").c_str());
        client->enable_server_certificate_verification(true);
        client->set_keep_alive(true);
        return client;
    }

    // Whether somebody is there before long.
    bool Reaches(int port, const char* authority, const std::string& path = "/key/status") const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            if (Connect(port, authority)->Get(path)) {
                return true;
            }
        }
        return false;
    }

    // One that nobody has at the moment.
    static int FreePort() {
        const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const name = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof address;
        EXPECT_EQ(::bind(socket.Get(), name, size), 0);
        EXPECT_EQ(::getsockname(socket.Get(), name, &size), 0);
        return ntohs(address.sin_port);
    }

    const ScratchFolder folder_;
    const std::filesystem::path file_ = folder_ / "settings";
};

TEST_F(ProgramSettingsTest, SighupTakesCertificateAndSettingsAndCutsNobody) {
    const int firstPort = FreePort();
    const int secondPort = FreePort();
    const int metricsPort = FreePort();
    Write("former", "PORT=" + std::to_string(firstPort) + "\n");
    Program service({"serve", "--settings", file_, "--database", folder_ / "accounts.db"});
    ASSERT_NE(service.Line(), "");
    const auto connected = Connect(firstPort, "former");
    ASSERT_TRUE(connected->Get("/key/status"));

    Write("later", "PORT=" + std::to_string(secondPort) +
                       "\nMETRICS_PORT=" + std::to_string(metricsPort) + "\n");
    service.Signal(SIGHUP);
    EXPECT_TRUE(Reaches(secondPort, "later"));
    EXPECT_FALSE(Connect(firstPort, "former")->Get("/key/status"));
    const auto metrics = httplib::Client("127.0.0.1", metricsPort).Get("/metrics");
    ASSERT_TRUE(metrics);
    for (const char* const line : {"kelvarin_sessions 0\n", "kelvarin_refusals_total{reason=\"",
                                   "# TYPE process_resident_memory_bytes gauge\n"}) {
        EXPECT_TRUE(Contains(metrics->body, line)) << metrics->body;
    }
    // On the port that is no more, and still its own connection: it was not cut.
    const auto answer = connected->Get("/key/status?access_key=" + std::string(kAnna));
    ASSERT_TRUE(answer);
    EXPECT_TRUE(Contains(answer->body, R"("valid":true)"));

    httplib::Server other;
    const std::string taken = std::to_string(other.bind_to_any_port("127.0.0.1"));
    for (const std::string& nonsense :
         {std::string("PROT=1\n"), std::string("DECODERS=many\n"), std::string("PORT=70000\n"),
          "PORT=" + taken + '\n', std::string("INSTANCE=other\n"),
          "KEY=" + (folder_ / "former/server.key").string() + '\n'}) {
        Write("later", nonsense);
        service.Signal(SIGHUP);
        EXPECT_TRUE(Reaches(secondPort, "later")) << nonsense;
    }
    service.Signal(SIGTERM);
    EXPECT_EQ(service.ExitCode(), 0);
    Write("later", "KEY=" + (folder_ / "former/server.key").string() + '\n');
    EXPECT_EQ(
        Program({"serve", "--settings", file_, "--database", folder_ / "accounts.db"}).ExitCode(),
        1)
        << "it began with the key of another certificate";
    Write("later", "PORT=70000\n");
    Program again({"serve", "--settings", file_, "--database", folder_ / "accounts.db"});
    EXPECT_EQ(again.ExitCode(), 2) << "it began with settings that make no sense";
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
        {{"serve", "--plain", "--instance", "a.b"}, 2, ""},
        {{"keys", "list", "--accounts", "mysql://here"}, 2, ""},
        {{"keys", "list", "--accounts", "postgresql:///none?host=/none"}, 1, ""},
        {{"keys", "list", "--settings", "/none"}, 1, ""},
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
