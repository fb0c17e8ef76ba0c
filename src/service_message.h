// Bodies of requests to the service, and what its refusals say.
#pragma once

#include "wide_text.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

using MessageField = std::pair<std::string_view, std::string_view>;

// One flat JSON object of string values, in the order given. Values go in as they stand, with no
// escaping: the service takes the access key as the user typed it.
std::string ServiceMessage(std::initializer_list<MessageField> fields);

// The reason in a response of status 403; "quota_exceeded" when it brings none at all.
WideString ForbiddenDetail(const std::string& response);
