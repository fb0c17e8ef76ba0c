// Synchronous HTTP (room http/). One thread at a time uses a handle and what was opened from it,
// but that any thread may close a request. Handles that are null, closed or of another kind make a
// call fail, and so do arguments beyond those told here.
#pragma once

#include <windows.h>

using HINTERNET = void*;
using INTERNET_PORT = WORD;
using INTERNET_SCHEME = int;

constexpr INTERNET_SCHEME INTERNET_SCHEME_HTTP = 1;
constexpr INTERNET_SCHEME INTERNET_SCHEME_HTTPS = 2;

struct URL_COMPONENTS {
    DWORD dwStructSize;
    LPWSTR lpszScheme;
    DWORD dwSchemeLength;
    INTERNET_SCHEME nScheme;
    LPWSTR lpszHostName;
    DWORD dwHostNameLength; // the buffer's room in units going in, the length coming out
    INTERNET_PORT nPort;
    LPWSTR lpszUserName;
    DWORD dwUserNameLength;
    LPWSTR lpszPassword;
    DWORD dwPasswordLength;
    LPWSTR lpszUrlPath;
    DWORD dwUrlPathLength;
    LPWSTR lpszExtraInfo;
    DWORD dwExtraInfoLength;
};
static_assert(sizeof(URL_COMPONENTS) == 104);

constexpr DWORD WINHTTP_ACCESS_TYPE_DEFAULT_PROXY = 0;
constexpr DWORD WINHTTP_OPTION_CONNECT_RETRIES = 4;
constexpr DWORD WINHTTP_FLAG_SECURE = 0x00800000;
constexpr DWORD WINHTTP_ADDREQ_FLAG_ADD = 0x20000000;
constexpr DWORD WINHTTP_QUERY_STATUS_CODE = 19;
constexpr DWORD WINHTTP_QUERY_FLAG_NUMBER = 0x20000000;

#define WINHTTP_NO_PROXY_NAME nullptr
#define WINHTTP_NO_PROXY_BYPASS nullptr
#define WINHTTP_NO_REFERER nullptr
#define WINHTTP_DEFAULT_ACCEPT_TYPES nullptr
#define WINHTTP_NO_ADDITIONAL_HEADERS nullptr
#define WINHTTP_NO_REQUEST_DATA nullptr
#define WINHTTP_HEADER_NAME_BY_INDEX nullptr
#define WINHTTP_NO_HEADER_INDEX nullptr

// Splits an http or https URL, given with its length or terminated and with length 0. Fills in the
// scheme, the port (the scheme's own when the URL names none) and the parts whose length is not 0:
// these have a buffer that they must fit, terminated. The path holds query and fragment too unless
// the extra info is asked for. Nothing is decoded. Only `flags` 0.
BOOL WinHttpCrackUrl(LPCWSTR url, DWORD length, DWORD flags, URL_COMPONENTS* components);

// A session takes from the environment, as it is now: the bundle of trusted authorities
// (SSL_CERT_FILE, else the system's) and the hosts that need no proxy (no_proxy, and always this
// machine). The proxies themselves are the usual variables'. Only the default access type.
HINTERNET WinHttpOpen(LPCWSTR userAgent, DWORD accessType, LPCWSTR proxyName, LPCWSTR proxyBypass,
                      DWORD flags);
// Knows WINHTTP_OPTION_CONNECT_RETRIES only, and of it the value 1.
BOOL WinHttpSetOption(HINTERNET session, DWORD option, LPVOID value, DWORD bytes);

// Holds the live connection to the server: requests opened from one handle reuse it, and one that
// the server has closed meanwhile is replaced. Port 0 is the scheme's own.
HINTERNET WinHttpConnect(HINTERNET session, LPCWSTR host, INTERNET_PORT port, DWORD reserved);

// GET, which a null method means too, or POST, in HTTP/1.1; version, referrer and accept types are
// null. `path` goes out as it stands, but for blanks, control characters and non-ASCII text, which
// are percent-encoded (as UTF-8) because they would break the request line.
HINTERNET WinHttpOpenRequest(HINTERNET connection, LPCWSTR method, LPCWSTR path, LPCWSTR version,
                             LPCWSTR referrer, LPCWSTR* acceptTypes, DWORD flags);
// 0 or less is no limit. Resolving is limited, and then connecting, to all addresses of the host
// and with a TLS handshake. Sending and receiving are limited as long as nothing goes out or comes
// in.
BOOL WinHttpSetTimeouts(HINTERNET request, int resolveMs, int connectMs, int sendMs, int receiveMs);
// Headers are separated by CR LF, all of them taken or none, and not those that frame the body.
// `length` is (DWORD)-1 for a terminated text. Only WINHTTP_ADDREQ_FLAG_ADD.
BOOL WinHttpAddRequestHeaders(HINTERNET request, LPCWSTR headers, DWORD length, DWORD modifiers);

// Connects where needed and sends head and body, once in the life of a request: what fails is not
// repeated, since the server may have acted on it. TRUE when all of it was handed to the system or
// the response has begun. `body` must stay valid until the response's head has been received.
BOOL WinHttpSendRequest(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID body,
                        DWORD bodyLength, DWORD totalLength, DWORD_PTR context);
// Waits for the head of the response. Follows up to ten redirects, none from https to http (that
// one is the response then); 307 and 308 repeat the request, the others go on with a GET.
BOOL WinHttpReceiveResponse(HINTERNET request, LPVOID reserved);
// The status code as a number only.
BOOL WinHttpQueryHeaders(HINTERNET request, DWORD infoLevel, LPCWSTR name, LPVOID buffer,
                         LPDWORD bufferBytes, LPDWORD index);
// Waits for the next bytes of the body. `*bytes` is 0 at its end; FALSE when it broke off, but only
// after what came before that has been read.
BOOL WinHttpQueryDataAvailable(HINTERNET request, LPDWORD bytes);
// Up to `bytes` of what is there, waiting for it if nothing is.
BOOL WinHttpReadData(HINTERNET request, LPVOID buffer, DWORD bytes, LPDWORD read);
// Any of the three kinds of handle. What was opened from a handle stays usable when it is closed.
// A call that waits on a request which another thread closes fails at once, and the connection that
// carried the request is given up. No handle is given out a second time.
BOOL WinHttpCloseHandle(HINTERNET handle);
