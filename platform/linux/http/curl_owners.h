// Owners of what libcurl hands out. Internal to the HTTP room, the only one that knows libcurl.
#pragma once

#include <curl/curl.h>

#include <memory>

namespace http {

struct EasyCleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
using EasyHandle = std::unique_ptr<CURL, EasyCleanup>;

struct MultiCleanup {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
using MultiHandle = std::unique_ptr<CURLM, MultiCleanup>;

struct UrlCleanup {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlCleanup>;

struct HeaderListCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, HeaderListCleanup>;

struct TextFree {
    void operator()(char* text) const { curl_free(text); }
};
using OwnedText = std::unique_ptr<char, TextFree>;

} // namespace http
