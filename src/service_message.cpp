#include "service_message.h"

#include "json_scanner.h"

std::string ServiceMessage(std::initializer_list<MessageField> fields) {
    constexpr std::size_t kPunctuation = 6; // quotes, colon and comma or brace of a field
    std::size_t size = 2;
    for (const auto& [key, value] : fields) {
        size += key.size() + value.size() + kPunctuation;
    }
    std::string body;
    body.reserve(size);
    body += "{\"";
    const char* separator = "";
    for (const auto& [key, value] : fields) {
        body.append(separator).append(key).append("\":\"").append(value);
        separator = "\",\"";
    }
    body += "\"}";
    return body;
}

WideString ForbiddenDetail(const std::string& response) {
    const WideString detail = Utf8ToWide(ExtractDetail(response));
    return detail.empty() ? WideString(TEXT("quota_exceeded")) : detail;
}
