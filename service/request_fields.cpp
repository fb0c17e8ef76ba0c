#include "request_fields.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace service {
namespace {

constexpr std::size_t kMostFields = 32; // a request has eight at most

// Called by the parser for each thing it meets; false ends the reading.
class Reader {
public:
    bool null() { return true; }
    bool boolean(bool) { return true; }
    bool number_integer(std::int64_t) { return true; }
    bool number_unsigned(std::uint64_t) { return true; }
    bool number_float(double, const std::string&) { return true; }
    bool binary(std::vector<std::uint8_t>&) { return false; }

    bool string(std::string& text) {
        if (!inObject_ || texts_.size() == kMostFields) {
            return false;
        }
        texts_.emplace_back(std::move(key_), std::move(text));
        return true;
    }

    bool start_object(std::size_t) { return !std::exchange(inObject_, true); }
    bool key(std::string& key) {
        key_ = std::move(key);
        return true;
    }
    bool end_object() { return true; }
    bool start_array(std::size_t) { return false; }
    bool end_array() { return false; }

    template <typename Failure>
    bool parse_error(std::size_t, const std::string&, const Failure&) {
        return false;
    }

    bool InObject() const { return inObject_; }
    std::vector<std::pair<std::string, std::string>> Take() { return std::move(texts_); }

private:
    std::string key_;
    bool inObject_ = false;
    std::vector<std::pair<std::string, std::string>> texts_;
};

} // namespace

RequestFields::RequestFields(std::string_view body) {
    Reader reader;
    if (!nlohmann::json::sax_parse(body, &reader) || !reader.InObject()) {
        throw BadRequest("The body is not a flat JSON object.");
    }
    texts_ = reader.Take();
}

const std::string& RequestFields::Text(std::string_view key) const {
    const auto found = std::find_if(texts_.rbegin(), texts_.rend(),
                                    [&](const auto& field) { return field.first == key; });
    if (found == texts_.rend()) {
        throw BadRequest("The body has no string \"" + std::string(key) + "\".");
    }
    return found->second;
}

} // namespace service
