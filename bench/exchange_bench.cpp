// What one exchange of 3,200 bytes of audio over HTTPS on loopback costs the client, in processor
// time of all its threads, beside the bare HTTP library sending the same body on a kept connection.
// The service runs in a process of its own.
#include "azure_translator.h"
#include "base64.h"
#include "scripted_service.h"
#include "test_certificates.h"
#include "test_service_url.h"

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kAudioBytes = 3200;
constexpr const char* kResults =
    R"([{"original":"he was not an ill disposed young man","translated":"no era un joven mal )"
    R"(dispuesto","is_final":true,"source_lang":"en-US","target_lang":"es"}])";

std::string serviceUrl;

ScriptedAnswer Answer(const ScriptedRequest& request) {
    ScriptedAnswer answer;
    if (request.target == "/session/start") {
        answer.body = R"({"session_id":"s-1"})";
    } else {
        // Only audio is answered with a result, so that each result stands for one exchange.
        const bool audio = request.body.find("\"audio_b64\":\"\"") == std::string::npos;
        answer.body = audio ? kResults : "[]";
    }
    return answer;
}

void Exchange(benchmark::State& state) {
    std::mutex mutex;
    std::condition_variable changed;
    std::int64_t results = 0;
    SetServiceUrl(serviceUrl);
    AzureTranslator translator;
    translator.Configure(
        TEXT("0123456789abcdef"), TEXT("en-US"), TEXT("en"), TEXT("es-ES"), TEXT("es"),
        [&](const TranslationResult&) {
            const std::lock_guard lock(mutex);
            ++results;
            changed.notify_all();
        },
        nullptr);
    if (!translator.Start()) {
        state.SkipWithError("no session");
        return;
    }
    const std::vector<std::uint8_t> audio(kAudioBytes, 1);
    std::int64_t wanted = 0;
    for (auto _ : state) {
        translator.PushAudio(audio.data(), kAudioBytes);
        ++wanted;
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return results >= wanted; });
    }
    translator.Stop();
}

std::size_t Collect(char* data, std::size_t size, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

void BareLibcurl(benchmark::State& state) {
    CURL* curl = curl_easy_init();
    const std::vector<std::uint8_t> audio(kAudioBytes, 1);
    const std::string request = "{\"session_id\":\"s-1\",\"audio_b64\":\"" +
                                Base64Encode(audio.data(), audio.size()) + "\"}";
    std::string response;
    curl_easy_setopt(curl, CURLOPT_URL, (serviceUrl + "/session/exchange").c_str());
    curl_easy_setopt(curl, CURLOPT_CAINFO, std::getenv("SSL_CERT_FILE"));
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.size()));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response);
    for (auto _ : state) {
        response.clear();
        if (curl_easy_perform(curl) != CURLE_OK) {
            state.SkipWithError("no answer");
            break;
        }
    }
    curl_easy_cleanup(curl);
}

BENCHMARK(Exchange)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BareLibcurl)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMicrosecond);

// The child's whole life: serves until its parent ends.
[[noreturn]] void Serve(const ServerCertificate& certificate, int reportTo) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    ScriptedService service(certificate);
    service.SetHandler(&Answer);
    const std::string port = std::to_string(service.Port());
    if (write(reportTo, port.c_str(), port.size()) < 0) {
        _exit(1);
    }
    close(reportTo);
    for (;;) {
        pause();
    }
}

} // namespace

int main(int argumentCount, char** arguments) {
    const TestCertificates certificates;
    setenv("SSL_CERT_FILE", certificates.AuthorityFile().c_str(), 1);
    int channel[2];
    if (pipe(channel) != 0) {
        return 1;
    }
    const pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        Serve(certificates.Trusted(), channel[1]);
    }
    close(channel[1]);
    char port[16] = {};
    const bool serving = child > 0 && read(channel[0], port, sizeof port - 1) > 0;
    serviceUrl = std::string("https://localhost:") + port;
    std::freopen("/dev/null", "w", stderr); // the trace
    benchmark::Initialize(&argumentCount, arguments);
    if (serving) {
        benchmark::RunSpecifiedBenchmarks();
    }
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    return serving ? 0 : 1;
}
