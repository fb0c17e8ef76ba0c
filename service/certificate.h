// A certificate for a service that only this computer reaches, signed by a local authority which
// the client's system can be told to trust.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>

namespace service {

struct CertificateFiles {
    std::filesystem::path authority; // ca.pem, for those who are to trust the service
    std::filesystem::path server;    // server.pem
    std::filesystem::path key;       // server.key, readable by its owner alone
};

CertificateFiles CertificateFilesIn(const std::filesystem::path& directory);

enum class CertificateState { Kept, Made };

// Sees to a usable set of the three files in the directory: keeps one that is complete, matches
// and is valid for a month at least, and makes a new authority and certificate otherwise. The
// authority's own key is thrown away after its one signature, so nobody can sign for another
// host with it. Throws std::runtime_error.
CertificateState EnsureCertificate(const std::filesystem::path& directory);

// Until the first certificate in the file ends, below 0 when it has ended; nothing when there is
// none to be read.
std::optional<std::chrono::seconds> TimeLeft(const std::filesystem::path& certificate);

} // namespace service
