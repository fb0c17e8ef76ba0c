// Text of addresses: splitting URLs, writing request targets, resolving redirects. Does no network
// work and knows no handles.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace http {

// All texts are UTF-8 and as they stand in the URL: nothing is decoded.
struct UrlParts {
    std::string scheme; // "http" or "https"
    std::string user;
    std::string password;
    std::string host; // an IPv6 address in its brackets
    std::uint16_t port = 0;
    std::string path;      // empty when the URL ends with its host
    std::string extraInfo; // query and fragment, with their "?" or "#"
};

// Nothing for a text that is no complete http or https URL.
std::optional<UrlParts> SplitUrl(const std::string& url);

// Where a request goes.
struct Address {
    bool secure = false;
    std::string origin; // "https://host:port"
    std::string target; // as the request line has it

    std::string Url() const { return origin + target; }
};

// `port` 0 is the scheme's own. Nothing when `host` is no host.
std::optional<std::string> MakeOrigin(bool secure, const std::string& host, std::uint16_t port);

// The path as it stands, but for what would break the request line: blanks, control characters and
// bytes beyond ASCII are percent-encoded, and a missing slash at the front is put there.
std::string MakeTarget(std::string_view path);

// Where a Location header, absolute or relative, leads from `from`. Nothing when that is no http or
// https address.
std::optional<Address> ResolveRedirect(const Address& from, std::string_view location);

} // namespace http
