#include "http/request.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

namespace http {
namespace {

constexpr int kMostRedirects = 10;

// An empty value keeps libcurl from writing such a header of its own. What is accepted and what the
// body is, is the caller's to say; waiting for leave to send the body would cost a round trip.
constexpr std::array kSuppressedHeaders{"Accept:", "Expect:", "Content-Type:"};

// libcurl would frame the body by them.
constexpr std::array<std::string_view, 2> kReservedHeaders{"content-length", "transfer-encoding"};

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char character) {
        const bool isUpper = character >= 'A' && character <= 'Z';
        return isUpper ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return lower;
}

bool IsControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return (byte < ' ' && character != '\t') || byte == 0x7F;
}

// The line as libcurl wants it, or nothing for what is no header line. An empty value is written
// with a semicolon there, since a colon would suppress the header.
std::optional<std::string> HeaderLine(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0 ||
        std::any_of(line.begin(), line.end(), IsControl)) {
        return std::nullopt;
    }
    const std::string_view name = line.substr(0, colon);
    const auto* reserved =
        std::find(kReservedHeaders.begin(), kReservedHeaders.end(), LowerCase(name));
    if (name.find_first_of(" \t;") != std::string_view::npos ||
        reserved != kReservedHeaders.end()) {
        return std::nullopt;
    }
    const bool isEmpty = line.find_first_not_of(" \t", colon + 1) == std::string_view::npos;
    return isEmpty ? std::string(name) + ";" : std::string(line);
}

// libcurl has one limit for resolving and connecting together, so it gets none. It takes 0 for its
// own.
constexpr long kNoLimitMs = std::numeric_limits<int>::max();

// Of an empty header libcurl leaves the carriage return in the value.
std::string_view WithoutLineEnd(std::string_view value) {
    return value.substr(0, value.find('\r'));
}

Clock::time_point After(Clock::time_point begin, int limitMs) {
    return limitMs > 0 ? begin + std::chrono::milliseconds(limitMs) : Clock::time_point::max();
}

// Whether libcurl took every option of a set.
class Options {
public:
    explicit Options(CURL* easy) : easy_(easy) {}
    template <typename Value>
    void Set(CURLoption option, Value value) {
        allTaken_ = allTaken_ && curl_easy_setopt(easy_, option, value) == CURLE_OK;
    }
    bool AllTaken() const { return allTaken_; }

private:
    CURL* easy_;
    bool allTaken_ = true;
};

} // namespace

Request::Request(std::shared_ptr<Connection> connection, Method method, Address address)
    : connection_(std::move(connection)), method_(method), address_(std::move(address)),
      easy_(curl_easy_init()) {
    for (const char* header : kSuppressedHeaders) {
        AppendHeader(header);
    }
}

Request::~Request() {
    Close();
}

void Request::SetTimeOuts(const TimeOuts& timeOuts) {
    const Lock lock = connection_->Enter();
    timeOuts_ = timeOuts;
}

void Request::Close() {
    {
        const Lock lock = connection_->Enter();
        Fail();
    }
    connection_->Wake();
}

bool Request::AppendHeader(const std::string& line) {
    curl_slist* grown = curl_slist_append(headers_.get(), line.c_str());
    if (!grown) {
        return false;
    }
    (void)headers_.release(); // the grown list begins with it
    headers_.reset(grown);
    return true;
}

bool Request::AddHeaders(std::string_view lines) {
    const Lock lock = connection_->Enter();
    if (stage_ != Stage::New) {
        return false;
    }
    constexpr std::string_view kLineEnd = "\r\n";
    std::vector<std::string> added;
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find(kLineEnd), lines.size());
        if (end != 0) {
            const auto line = HeaderLine(lines.substr(0, end));
            if (!line) {
                return false;
            }
            added.push_back(*line);
        }
        lines.remove_prefix(std::min(end + kLineEnd.size(), lines.size()));
    }
    return std::all_of(added.begin(), added.end(),
                       [this](const std::string& line) { return AppendHeader(line); });
}

bool Request::Send(const void* body, std::size_t bytes) {
    Lock lock = connection_->Enter();
    if (stage_ != Stage::New || (method_ == Method::Get && bytes != 0)) {
        return false;
    }
    body_ = body;
    bodyBytes_ = bytes;
    stage_ = Stage::Sent;
    return Dispatch(lock) || Fail();
}

// Brings the request to where `address_` says.
bool Request::Dispatch(Lock& lock) {
    EnterPhase(Phase::Resolving);
    headComplete_ = false;
    received_.clear();
    return Configure() && connection_->Begin(easy_.get(), progress_) &&
           DriveUntil(
               lock, [this] { return IsHandedOver(); }, timeOuts_.sendMs);
}

bool Request::Configure() {
    curl_easy_reset(easy_.get());
    const Session& session = connection_->CommonSettings();
    Options options(easy_.get());
    options.Set(CURLOPT_URL, address_.origin.c_str());
    options.Set(CURLOPT_REQUEST_TARGET, address_.target.c_str());
    options.Set(CURLOPT_PROTOCOLS_STR, "http,https");
    options.Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    options.Set(CURLOPT_HTTPHEADER, headers_.get());
    if (!session.userAgent.empty()) {
        options.Set(CURLOPT_USERAGENT, session.userAgent.c_str());
    }
    if (method_ == Method::Post) {
        options.Set(CURLOPT_POST, 1L);
        options.Set(CURLOPT_POSTFIELDS, body_ ? static_cast<const char*>(body_) : "");
        options.Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(bodyBytes_));
    }

    options.Set(CURLOPT_NOPROXY, session.noProxy.c_str());
    // A plain proxy would need the whole URL in the request line in place of the target.
    options.Set(CURLOPT_HTTPPROXYTUNNEL, 1L);
    options.Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    if (!session.trustFile.empty()) {
        options.Set(CURLOPT_CAINFO, session.trustFile.c_str());
        options.Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }

    options.Set(CURLOPT_NOSIGNAL, 1L);
    options.Set(CURLOPT_CONNECTTIMEOUT_MS, kNoLimitMs);
    // Or a look-up that was given up would still be waited for.
    options.Set(CURLOPT_QUICK_EXIT, 1L);
    options.Set(CURLOPT_FRESH_CONNECT, connection_->ServerHungUp() ? 1L : 0L);
    options.Set(CURLOPT_OPENSOCKETFUNCTION, &Request::OpenSocket);
    options.Set(CURLOPT_OPENSOCKETDATA, this);
    options.Set(CURLOPT_CLOSESOCKETFUNCTION, &Connection::CloseSocket);
    options.Set(CURLOPT_CLOSESOCKETDATA, connection_.get());
    options.Set(CURLOPT_PREREQFUNCTION, &Request::BeforeWriting);
    options.Set(CURLOPT_PREREQDATA, this);
    options.Set(CURLOPT_HEADERFUNCTION, &Request::OnHeaderLine);
    options.Set(CURLOPT_HEADERDATA, this);
    options.Set(CURLOPT_WRITEFUNCTION, &Request::OnBody);
    options.Set(CURLOPT_WRITEDATA, this);
    return options.AllTaken();
}

bool Request::IsHandedOver() const {
    if (headComplete_) {
        return true;
    }
    const bool hasFailed = progress_.finished && progress_.result != CURLE_OK;
    return phase_ == Phase::Exchanging && !hasFailed && !connection_->WantsToWrite(progress_);
}

bool Request::ReceiveHead() {
    Lock lock = connection_->Enter();
    if (stage_ != Stage::Sent) {
        return false;
    }
    if (!FollowRedirects(lock)) {
        return Fail();
    }
    stage_ = Stage::HeadReceived;
    return true;
}

bool Request::FollowRedirects(Lock& lock) {
    for (int redirects = 0;; ++redirects) {
        if (!DriveUntil(
                lock, [this] { return headComplete_; }, timeOuts_.receiveMs)) {
            return false;
        }
        auto next = RedirectTarget();
        if (!next) {
            return true;
        }
        if (redirects == kMostRedirects) {
            return false;
        }
        GiveUp(CURLE_OK);
        const bool repeatsRequest = status_ == 307 || status_ == 308;
        if (!repeatsRequest) {
            method_ = Method::Get;
        }
        address_ = std::move(*next);
        if (!Dispatch(lock)) {
            return false;
        }
    }
}

// Where the response leads, when it leads anywhere that may be followed.
std::optional<Address> Request::RedirectTarget() const {
    constexpr std::array<long, 5> kRedirects{301, 302, 303, 307, 308};
    curl_header* location = nullptr;
    if (std::find(kRedirects.begin(), kRedirects.end(), status_) == kRedirects.end() ||
        curl_easy_header(easy_.get(), "Location", 0, CURLH_HEADER, -1, &location) != CURLHE_OK) {
        return std::nullopt;
    }
    auto next = ResolveRedirect(address_, WithoutLineEnd(location->value));
    if (next && address_.secure && !next->secure) {
        return std::nullopt;
    }
    return next;
}

std::optional<long> Request::Status() const {
    const Lock lock = connection_->Enter();
    return stage_ == Stage::HeadReceived ? std::optional(status_) : std::nullopt;
}

std::optional<std::size_t> Request::AwaitBody() {
    Lock lock = connection_->Enter();
    return DriveToBody(lock) ? std::optional(Available()) : std::nullopt;
}

// True with an empty hand at the end of the body.
bool Request::DriveToBody(Lock& lock) {
    if (stage_ != Stage::HeadReceived) {
        return false;
    }
    return DriveUntil(
               lock, [this] { return Available() > 0; }, timeOuts_.receiveMs) ||
           progress_.result == CURLE_OK;
}

std::optional<std::size_t> Request::Take(void* buffer, std::size_t room) {
    Lock lock = connection_->Enter();
    if (!DriveToBody(lock)) {
        return std::nullopt;
    }
    const std::size_t bytes = std::min(room, Available());
    if (bytes == 0) {
        return 0;
    }
    std::memcpy(buffer, received_.data() + taken_, bytes);
    taken_ += bytes;
    if (Available() == 0) {
        received_.clear();
        taken_ = 0;
    }
    return bytes;
}

// False when the transfer ended first, or what libcurl is at took longer than it may: in an
// exchange that is the time in which nothing moves.
template <typename Condition>
bool Request::DriveUntil(Lock& lock, Condition reached, int quietLimitMs) {
    progress_.lastTraffic = Clock::now();
    while (!reached()) {
        if (progress_.finished) {
            return false;
        }
        connection_->Step(lock, Deadline(quietLimitMs));
        if (stage_ == Stage::Failed) { // closed meanwhile
            return false;
        }
        if (!progress_.finished && Clock::now() >= Deadline(quietLimitMs)) {
            GiveUp(CURLE_OPERATION_TIMEDOUT);
        }
    }
    return true;
}

Clock::time_point Request::Deadline(int quietLimitMs) const {
    switch (phase_) {
    case Phase::Resolving:
        return After(phaseBegan_, timeOuts_.resolveMs);
    case Phase::Connecting:
        return After(phaseBegan_, timeOuts_.connectMs);
    case Phase::Exchanging:
        break;
    }
    return After(progress_.lastTraffic, quietLimitMs);
}

void Request::EnterPhase(Phase phase) {
    phase_ = phase;
    phaseBegan_ = Clock::now();
}

bool Request::Fail() {
    GiveUp(CURLE_ABORTED_BY_CALLBACK);
    stage_ = Stage::Failed;
    return false;
}

// A transfer that has finished keeps its result, and its connection stays.
void Request::GiveUp(CURLcode result) {
    if (stage_ != Stage::New) {
        connection_->Withdraw(easy_.get());
    }
    if (!progress_.finished) {
        progress_.finished = true;
        progress_.result = result;
    }
}

// libcurl repeats a request by itself when a connection in use dies before it brought a byte. The
// server may have acted on the first one, so a second is refused here, and already its connection.
int Request::BeforeWriting(void* request, char*, char*, int, int) noexcept {
    auto* self = static_cast<Request*>(request);
    if (self->phase_ == Phase::Exchanging) {
        return CURL_PREREQFUNC_ABORT;
    }
    self->EnterPhase(Phase::Exchanging);
    self->progress_.lastTraffic = Clock::now();
    return CURL_PREREQFUNC_OK;
}

curl_socket_t Request::OpenSocket(void* request, curlsocktype, curl_sockaddr* address) noexcept {
    auto* self = static_cast<Request*>(request);
    if (self->phase_ == Phase::Exchanging) {
        return CURL_SOCKET_BAD;
    }
    if (self->phase_ == Phase::Resolving) { // the first address of the host
        self->EnterPhase(Phase::Connecting);
    }
    return self->connection_->OpenSocket(*address);
}

std::size_t Request::OnHeaderLine(char* line, std::size_t, std::size_t bytes,
                                  void* request) noexcept {
    const std::string_view text(line, bytes);
    if (text != "\r\n" && text != "\n") {
        return bytes;
    }
    auto* self = static_cast<Request*>(request);
    long status = 0;
    curl_easy_getinfo(self->easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    if (!self->headComplete_ && status >= 200) { // smaller ones announce the final response
        self->status_ = status;
        self->headComplete_ = true;
    }
    return bytes;
}

std::size_t Request::OnBody(char* data, std::size_t, std::size_t bytes, void* request) noexcept {
    static_cast<Request*>(request)->received_.append(data, bytes);
    return bytes;
}

} // namespace http
