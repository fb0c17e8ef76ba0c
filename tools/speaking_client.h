// What a speaker's client says to the service: for programs that measure and try it.
#pragma once

#include "recorded_speech.h"

#include <httplib.h>
#include <openssl/evp.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace service {

constexpr std::size_t kRate = 16'000;
constexpr std::size_t kLargestSlice = 16'384; // samples, as the client sends them

inline std::string Base64(std::span<const std::int16_t> samples) {
    std::string text(samples.size_bytes() / 3 * 4 + 5, '\0'); // with the terminating zero
    text.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(samples.data()),
                        static_cast<int>(samples.size_bytes()))));
    return text;
}

// To `https://HOST:PORT`, whose certificate is of that authority.
inline std::unique_ptr<httplib::Client> ConnectTo(const std::string& url,
                                                  const std::string& authority) {
    auto client = std::make_unique<httplib::Client>(url);
    client->set_ca_cert_path(authority);
    client->enable_server_certificate_verification(true);
    client->set_keep_alive(true);
    client->set_tcp_nodelay(true);
    client->set_read_timeout(std::chrono::seconds(8)); // the client's own
    return client;
}

// The session's id, empty when it was refused.
inline std::string StartSession(httplib::Client& client, const std::string& key) {
    const auto answer = client.Post(
        "/session/start",
        R"({"access_key":")" + key +
            R"(","lang_a":"en-US","lang_a_tgt":"en","lang_b":"es-ES","lang_b_tgt":"es"})",
        "application/json");
    constexpr std::string_view kBefore = R"({"session_id":")";
    if (!answer || answer->status != 200) {
        return {};
    }
    const std::string rest = answer->body.substr(kBefore.size());
    return rest.substr(0, rest.find('"'));
}

inline httplib::Result Exchange(httplib::Client& client, const std::string& key,
                                const std::string& id, std::span<const std::int16_t> samples) {
    return client.Post("/session/exchange",
                       R"({"session_id":")" + id + R"(","access_key":")" + key +
                           R"(","audio_b64":")" + Base64(samples) + "\"}",
                       "application/json");
}

inline bool StopSession(httplib::Client& client, const std::string& key, const std::string& id) {
    const auto answer = client.Post("/session/stop",
                                    R"({"session_id":")" + id + R"(","access_key":")" + key + "\"}",
                                    "application/json");
    return answer && answer->status == 200;
}

inline std::size_t CaptionsIn(const std::string& body) {
    constexpr std::string_view kOriginal = "\"original\"";
    std::size_t count = 0;
    for (auto at = body.find(kOriginal); at != std::string::npos;
         at = body.find(kOriginal, at + 1)) {
        ++count;
    }
    return count;
}

// The recordings one after the other, with a pause behind each.
inline std::vector<std::int16_t> AllSpeech() {
    std::vector<std::int16_t> all;
    for (const Recording& recording : Recordings()) {
        all.insert(all.end(), recording.samples.begin(), recording.samples.end());
        all.resize(all.size() + kRate / 2);
    }
    return all;
}

} // namespace service
