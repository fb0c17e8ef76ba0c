#include "http/url.h"

#include "http/curl_owners.h"

#include <algorithm>
#include <array>
#include <utility>

namespace http {
namespace {

constexpr std::string_view kSchemeEnd = "://";

std::optional<std::string> Part(CURLU* url, CURLUPart part, unsigned int flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url, part, &text, flags) != CURLUE_OK) {
        return std::nullopt;
    }
    return std::string(OwnedText(text).get());
}

bool MayStandInRequestLine(unsigned char byte) {
    return byte > ' ' && byte < 0x7F;
}

std::string EncodeForRequestLine(std::string_view text) {
    constexpr std::array<char, 17> kHexDigits{"0123456789ABCDEF"};
    std::string encoded;
    encoded.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (MayStandInRequestLine(byte)) {
            encoded += character;
        } else {
            encoded += {'%', kHexDigits[byte >> 4U], kHexDigits[byte & 0xFU]};
        }
    }
    return encoded;
}

struct Authority {
    std::string scheme;
    std::string host;
    std::string port; // always given

    std::string Origin() const { return scheme + std::string(kSchemeEnd) + host + ":" + port; }
};

std::optional<Authority> HttpAuthority(CURLU* url) {
    auto scheme = Part(url, CURLUPART_SCHEME);
    auto host = Part(url, CURLUPART_HOST);
    auto port = Part(url, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    if (!scheme || (scheme != "http" && scheme != "https") || !host || host->empty() || !port) {
        return std::nullopt;
    }
    return Authority{std::move(*scheme), std::move(*host), std::move(*port)};
}

} // namespace

std::optional<UrlParts> SplitUrl(const std::string& url) {
    // libcurl takes "http:/host" and "http:///host" for a host; nobody means that.
    const std::size_t schemeEnd = url.find(kSchemeEnd);
    if (schemeEnd == std::string::npos || url.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    const std::size_t authorityBegin = schemeEnd + kSchemeEnd.size();
    const std::size_t authorityEnd = std::min(url.find_first_of("/?#", authorityBegin), url.size());
    if (authorityEnd == authorityBegin) {
        return std::nullopt;
    }

    const UrlHandle parsed(curl_url());
    if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), CURLU_PATH_AS_IS) != 0) {
        return std::nullopt;
    }
    const auto authority = HttpAuthority(parsed.get());
    if (!authority) {
        return std::nullopt;
    }

    UrlParts parts;
    parts.scheme = authority->scheme;
    parts.user = Part(parsed.get(), CURLUPART_USER).value_or("");
    parts.password = Part(parsed.get(), CURLUPART_PASSWORD).value_or("");
    parts.host = authority->host;
    // libcurl has seen to it that this is a number up to 65535.
    parts.port = static_cast<std::uint16_t>(std::stoul(authority->port));
    // From the text itself, because libcurl would put a path where there is none.
    const std::size_t pathEnd = std::min(url.find_first_of("?#", authorityEnd), url.size());
    parts.path = url.substr(authorityEnd, pathEnd - authorityEnd);
    parts.extraInfo = url.substr(pathEnd);
    return parts;
}

std::optional<std::string> MakeOrigin(bool secure, const std::string& host, std::uint16_t port) {
    const bool isBareIpv6 = host.find(':') != std::string::npos && host.front() != '[';
    const std::string hostPart = isBareIpv6 ? "[" + host + "]" : host;
    const std::string portPart = std::to_string(port);
    const UrlHandle url(curl_url());
    if (!url || host.empty() || host.find('\0') != std::string::npos ||
        curl_url_set(url.get(), CURLUPART_SCHEME, secure ? "https" : "http", 0) != CURLUE_OK ||
        curl_url_set(url.get(), CURLUPART_HOST, hostPart.c_str(), 0) != CURLUE_OK) {
        return std::nullopt;
    }
    if (port != 0 && curl_url_set(url.get(), CURLUPART_PORT, portPart.c_str(), 0) != CURLUE_OK) {
        return std::nullopt;
    }
    const auto authority = HttpAuthority(url.get());
    return authority ? std::optional(authority->Origin()) : std::nullopt;
}

std::string MakeTarget(std::string_view path) {
    const std::string target = EncodeForRequestLine(path);
    return path.starts_with('/') ? target : "/" + target;
}

std::optional<Address> ResolveRedirect(const Address& from, std::string_view location) {
    const std::string encoded = EncodeForRequestLine(location);
    const UrlHandle url(curl_url());
    if (!url || encoded.empty() ||
        curl_url_set(url.get(), CURLUPART_URL, from.Url().c_str(), 0) != CURLUE_OK ||
        curl_url_set(url.get(), CURLUPART_URL, encoded.c_str(), 0) != CURLUE_OK) {
        return std::nullopt;
    }
    const auto authority = HttpAuthority(url.get());
    const auto path = Part(url.get(), CURLUPART_PATH);
    if (!authority || !path) {
        return std::nullopt;
    }
    const auto query = Part(url.get(), CURLUPART_QUERY);
    return Address{authority->scheme == "https", authority->Origin(),
                   query ? *path + "?" + *query : *path};
}

} // namespace http
