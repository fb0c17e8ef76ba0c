// Certificates for TLS tests: an authority and what it issued, good and bad, made anew in a folder
// of their own. Knows nothing of services or the program. Linux only.
#pragma once

#include "scripted_service.h"

#include <filesystem>

// Owns the folder, which goes with it. Read-only once made, so any thread may ask it.
class TestCertificates {
public:
    TestCertificates();
    ~TestCertificates();
    TestCertificates(const TestCertificates&) = delete;
    TestCertificates& operator=(const TestCertificates&) = delete;

    // The bundle to trust, as SSL_CERT_FILE names it.
    std::string AuthorityFile() const { return File("authority.pem"); }

    // For 127.0.0.1 and localhost, of the trusted authority.
    ServerCertificate Trusted() const { return Named("trusted"); }
    ServerCertificate Expired() const { return Named("expired"); }
    // For another host than the one that the service runs on.
    ServerCertificate WrongHost() const { return Named("wrong-host"); }
    // Of an authority that nobody trusts.
    ServerCertificate Foreign() const { return Named("foreign"); }

private:
    std::string File(const std::string& name) const { return (folder_ / name).string(); }
    ServerCertificate Named(const std::string& name) const {
        return {File(name + ".pem"), File(name + ".key")};
    }

    std::filesystem::path folder_;
};
