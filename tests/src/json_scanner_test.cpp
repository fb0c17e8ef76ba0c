#include "json_scanner.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

TEST(JsonScanner, TakesTheBytesBetweenTheQuotesBehindTheFirstKey) {
    const struct {
        const char* body;
        const char* key;
        const char* expected;
    } cases[] = {
        {R"({"a":"x","b":"y"})", "b", "y"},
        {R"({"a" : "x y"})", "a", "x y"},
        {"{\"a\":\n\"x\"}", "a", "x"},
        {R"({"a":""})", "a", ""},
        {R"({"a":"x\ny\u0041"})", "a", R"(x\ny\u0041)"}, // escapes stay as they are
        {R"({"a":"x\"y"})", "a", R"(x\)"},
        {R"({"a":12,"b":"y"})", "a", "b"}, // the next quoted text, whatever it is
        {R"({"a":null})", "a", ""},
        {R"({"in":{"a":"deep"},"a":"flat"})", "a", "deep"},
        {R"({"x":"a","a":"value"})", "a", "value"}, // the key as a value: its colon is further on
        {R"({"x":"reason","y":"z"})", "reason", "z"},
        {R"({"a"})", "a", ""},
        {R"({"a":"cut)", "a", ""},
        {"", "a", ""},
        {"\"a\"", "a", ""},
        {R"({"ab":"no"})", "a", ""},
        {"{\"a\":\"中\xFF文\"}", "a", "中\xFF文"},
    };
    for (const auto& [body, key, expected] : cases) {
        EXPECT_EQ(ExtractJsonString(body, key), expected) << body;
    }
}

TEST(JsonScanner, ReadsOnlyABareTrueOnTheKeysLineAsTrue) {
    const std::pair<const char*, bool> cases[] = {
        {R"({"v":true})", true},    {"{\"v\": \t true}", true}, {R"({"v":trueish})", true},
        {R"({"v":"true"})", false}, {"{\"v\":\ntrue}", false},  {R"({"v":1})", false},
        {R"({"v":True})", false},   {R"({"v":tru)", false},     {R"({"v":)", false},
        {R"({"w":true})", false},
    };
    for (const auto& [body, expected] : cases) {
        EXPECT_EQ(ExtractJsonBool(body, "v"), expected) << body;
    }
}

TEST(JsonScanner, ReadsWhateverStartsAsANumber) {
    const std::pair<const char*, double> cases[] = {
        {R"({"n":12.5,"m":3})", 12.5}, {R"({"n": -7})", -7.0},   {"{\"n\":\n 4}", 4.0},
        {R"({"n":1e3})", 1000.0},      {R"({"n":"12"})", 0.0},   {R"({"n":null})", 0.0},
        {R"({"n":1e999})", 0.0},       {R"({"n":-1e999})", 0.0}, {R"({"n":)", 0.0},
        {R"({"m":1})", 0.0},           {R"({"n":5)", 5.0},
    };
    for (const auto& [body, expected] : cases) {
        EXPECT_EQ(ExtractJsonNumber(body, "n"), expected) << body;
    }
}

TEST(JsonScanner, FallsBackToTheWholeBodyAsDetail) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"detail":"key_disabled"})", "key_disabled"},
        {R"({"detail":""})", ""},
        {R"({"detail":12})", R"({"detail":12})"},
        {"{}", "{}"},
        {"", ""},
        {"Forbidden", "Forbidden"},
    };
    for (const auto& [body, expected] : cases) {
        EXPECT_EQ(ExtractDetail(body), expected);
    }
}

TEST(JsonScanner, SplitsByBracesAlone) {
    using Texts = std::vector<std::string>;
    const std::pair<const char*, Texts> cases[] = {
        {"", {}},
        {"[]", {}},
        {"{\"a\":1}", {}},
        {"][", {}},
        {"[{\"a\":1}", {}},
        {R"([{"a":1},{"b":2}])", {R"({"a":1})", R"({"b":2})"}},
        {R"({"results":[{"a":1}],"n":2})", {R"({"a":1})"}},
        {R"([1,"x",{"a":{"b":2}},null])", {R"({"a":{"b":2}})"}},
        {R"({"x":[{"a":1}],"y":{"q":1},"z":[{"b":2}]})",
         {R"({"a":1})", R"({"q":1})", R"({"b":2})"}},
        {R"([{"a":"}"},{"b":2}])", {R"({"a":"})"}}, // nothing completes behind a stray brace
        {R"([{"a":"{"},{"b":2}])", {}},
        {R"([{"a":"{"},{"b":"}"}])", {R"({"a":"{"},{"b":"}"})"}},
    };
    for (const auto& [body, expected] : cases) {
        EXPECT_EQ(SplitJsonArray(body), expected) << body;
    }
}

} // namespace
