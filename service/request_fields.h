// The body of a request: one flat JSON object, of which the strings count. Read without building a
// tree, which for a hostile text of some kilobytes would take megabytes.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace service {

// The client's fault: its text is the one-line answer with status 400.
class BadRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class RequestFields {
public:
    // Throws BadRequest for anything but a JSON object without objects or arrays in it.
    explicit RequestFields(std::string_view body);

    // Throws BadRequest when there is no such string. Of several the last one counts.
    const std::string& Text(std::string_view key) const;

private:
    std::vector<std::pair<std::string, std::string>> texts_;
};

} // namespace service
