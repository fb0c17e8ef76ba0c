// What a service is told about how to serve: by its command line, and by a file that can be read
// again while it runs.
#pragma once

#include "command_line.h"
#include "http_server.h"

#include <cstddef>
#include <optional>
#include <string>

namespace service {

struct Settings {
    std::string address;
    int port = 0; // 0: any free one
    std::size_t decoders = 0;
    std::optional<TlsFiles> tls;    // nothing: plain HTTP
    std::optional<int> metricsPort; // on the loopback address; nothing: none
    std::string accounts;           // as a URL; empty: a file
    std::string instance;           // among several that serve together; may be empty

    bool SamePlace(const Settings& other) const {
        return address == other.address && port == other.port;
    }
};

// The command line's options count before the file of --settings, and that before what is usual.
// The file has lines of NAME=VALUE, as /etc/default has them, and comments. Throws UsageError for
// what cannot be meant, and std::runtime_error for a file that cannot be read or lacks sense.
Settings ReadSettings(const CommandLine& line);

// The command line with what the file of --settings has besides.
CommandLine WithSettingsFile(const CommandLine& line);

} // namespace service
