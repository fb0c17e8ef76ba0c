#include "certificate.h"
#include "scratch_folder.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <thread>

namespace service {
namespace {

namespace fs = std::filesystem;

std::string Content(const fs::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

TEST(CertificateTest, AClientThatTrustsTheAuthorityReachesTheServiceByBothNames) {
    const ScratchFolder folder;
    ASSERT_EQ(EnsureCertificate(folder.Path()), CertificateState::Made);
    const CertificateFiles files = CertificateFilesIn(folder.Path());
    httplib::SSLServer server(files.server.c_str(), files.key.c_str());
    server.Get("/", [](const httplib::Request&, httplib::Response& response) {
        response.set_content("here", "text/plain");
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    std::jthread serving([&] { server.listen_after_bind(); });
    while (!server.is_running()) { // before that it does not let itself be stopped
        std::this_thread::yield();
    }
    const std::shared_ptr<void> stopped(nullptr, [&](void*) { server.stop(); });

    for (const char* const host : {"localhost", "127.0.0.1"}) {
        httplib::SSLClient client(host, port);
        client.set_hostname_addr_map({{host, "127.0.0.1"}}); // also where no file of hosts is
        client.set_ca_cert_path(files.authority.c_str());
        client.enable_server_certificate_verification(true);
        const auto answer = client.Get("/");
        ASSERT_TRUE(answer) << host << ": " << httplib::to_string(answer.error());
        EXPECT_EQ(answer->body, "here");
    }
}

TEST(CertificateTest, AGoodSetIsKeptAndADamagedOneReplacedAsAWhole) {
    const ScratchFolder folder;
    const ScratchFolder other;
    EnsureCertificate(folder.Path());
    EnsureCertificate(other.Path());
    const CertificateFiles files = CertificateFilesIn(folder.Path());
    const CertificateFiles foreign = CertificateFilesIn(other.Path());

    const auto left = TimeLeft(files.server);
    ASSERT_TRUE(left);
    EXPECT_GT(*left, std::chrono::hours(24 * 365 * 4));
    EXPECT_LT(*left, std::chrono::hours(24 * 366 * 5));
    EXPECT_FALSE(TimeLeft(files.key));

    const std::string before = Content(files.server);
    fs::permissions(files.key, fs::perms::all);
    EXPECT_EQ(EnsureCertificate(folder.Path()), CertificateState::Kept);
    EXPECT_EQ(Content(files.server), before);
    struct stat status {};
    ASSERT_EQ(::stat(files.key.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);

    const auto replace = fs::copy_options::overwrite_existing;
    const std::vector<std::function<void()>> damages = {
        [&] { fs::remove(files.authority); },
        [&] { fs::remove(files.key); },
        [&] { fs::resize_file(files.server, 100); },
        [&] { fs::copy_file(foreign.key, files.key, replace); },
        [&] { fs::copy_file(foreign.authority, files.authority, replace); },
        [&] { fs::copy_file(foreign.authority, files.server, replace); },
    };
    for (std::size_t i = 0; i < damages.size(); ++i) {
        damages[i]();
        EXPECT_EQ(EnsureCertificate(folder.Path()), CertificateState::Made) << "damage " << i;
        EXPECT_EQ(EnsureCertificate(folder.Path()), CertificateState::Kept) << "damage " << i;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path()), {}), 3) << "left-over files";
}

} // namespace
} // namespace service
