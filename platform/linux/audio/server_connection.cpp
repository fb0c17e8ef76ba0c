// Connecting, asking for endpoints, and waiting with a limit.
#include "audio/server_connection.h"

#include <utility>

namespace audio {

namespace {

// Rings once on the loop's thread unless it goes before. Made and dropped under the loop's lock.
class Deadline {
public:
    Deadline(pa_context* context, pa_threaded_mainloop* loop, unsigned timeoutMs)
        : loop_(loop), api_(pa_threaded_mainloop_get_api(loop)),
          event_(pa_context_rttime_new(
              context, pa_rtclock_now() + pa_usec_t{timeoutMs} * PA_USEC_PER_MSEC, OnTime, this)) {}
    ~Deadline() {
        if (event_ != nullptr) {
            api_->time_free(event_);
        }
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    // Without a timer there must be no wait either.
    bool HasPassed() const { return passed_ || event_ == nullptr; }

private:
    static void OnTime(pa_mainloop_api* /*api*/, pa_time_event* /*event*/, const timeval* /*time*/,
                       void* user) {
        auto* deadline = static_cast<Deadline*>(user);
        deadline->passed_ = true;
        pa_threaded_mainloop_signal(deadline->loop_, 0);
    }

    pa_threaded_mainloop* loop_;
    pa_mainloop_api* api_;
    bool passed_ = false; // under the loop's lock, like the event
    pa_time_event* event_;
};

// A socket may be known to be empty; a sink or source without sockets is always there.
template <typename Info>
bool IsPluggedIn(const Info& info) {
    return info.active_port == nullptr || info.active_port->available != PA_PORT_AVAILABLE_NO;
}

// Not every server gives every text.
std::string Text(const char* text) {
    return text != nullptr ? text : "";
}

void OnSink(pa_context* /*context*/, const pa_sink_info* info, int end, void* user) {
    if (end != 0) {
        return;
    }
    static_cast<std::vector<Endpoint>*>(user)->push_back(
        {eRender, Text(info->name), Text(info->description), Text(info->monitor_source_name),
         info->sample_spec, info->channel_map, IsPluggedIn(*info)});
}

void OnSource(pa_context* /*context*/, const pa_source_info* info, int end, void* user) {
    if (end != 0 || info->monitor_of_sink != PA_INVALID_INDEX) {
        return;
    }
    static_cast<std::vector<Endpoint>*>(user)->push_back(
        {eCapture, Text(info->name), Text(info->description), Text(info->name), info->sample_spec,
         info->channel_map, IsPluggedIn(*info)});
}

struct DefaultNames {
    std::string sink;
    std::string source;
};

void OnServer(pa_context* /*context*/, const pa_server_info* info, void* user) {
    if (info == nullptr) {
        return;
    }
    auto* names = static_cast<DefaultNames*>(user);
    names->sink = Text(info->default_sink_name);
    names->source = Text(info->default_source_name);
}

} // namespace

std::shared_ptr<ServerConnection> ServerConnection::Open() {
    std::shared_ptr<ServerConnection> connection(
        std::unique_ptr<ServerConnection>(new ServerConnection));
    return connection->Connect() ? connection : nullptr;
}

bool ServerConnection::Connect() {
    loop_.reset(pa_threaded_mainloop_new());
    if (loop_ == nullptr) {
        return false;
    }
    pa_threaded_mainloop_set_name(loop_.get(), "kelvarin-sound");
    context_.reset(pa_context_new(pa_threaded_mainloop_get_api(loop_.get()), "Kelvarin"));
    if (context_ == nullptr || pa_threaded_mainloop_start(loop_.get()) < 0) {
        return false;
    }
    const Lock lock(*this);
    pa_context_set_state_callback(
        context_.get(),
        [](pa_context* /*context*/, void* user) {
            static_cast<const ServerConnection*>(user)->WakeWaiters();
        },
        this);
    if (pa_context_connect(context_.get(), nullptr, PA_CONTEXT_NOFLAGS, nullptr) < 0) {
        return false;
    }
    return WaitUntil(lock, [this] { return pa_context_get_state(Context()) == PA_CONTEXT_READY; });
}

ServerConnection::~ServerConnection() {
    // The thread ends before the context goes, so no lock is needed for what follows.
    if (loop_ != nullptr) {
        pa_threaded_mainloop_stop(loop_.get());
    }
}

bool ServerConnection::WaitUntil(const Lock& /*lock*/, const std::function<bool()>& done) {
    const Deadline deadline(Context(), loop_.get(), kAnswerTimeoutMs);
    while (!done()) {
        if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(Context()))) {
            return false;
        }
        if (deadline.HasPassed()) {
            pa_context_disconnect(Context());
            return false;
        }
        pa_threaded_mainloop_wait(loop_.get());
    }
    return true;
}

bool ServerConnection::Finish(const Lock& lock, pa_operation* begun) {
    if (begun == nullptr) {
        return false;
    }
    const Operation operation(begun);
    pa_operation_set_state_callback(
        operation.get(),
        [](pa_operation* /*operation*/, void* user) {
            static_cast<const ServerConnection*>(user)->WakeWaiters();
        },
        this);
    const auto hasEnded = [&operation] {
        return pa_operation_get_state(operation.get()) != PA_OPERATION_RUNNING;
    };
    return WaitUntil(lock, hasEnded) &&
           pa_operation_get_state(operation.get()) == PA_OPERATION_DONE;
}

std::optional<std::vector<Endpoint>> ServerConnection::ListEndpoints(EDataFlow flow) {
    std::vector<Endpoint> endpoints;
    const Lock lock(*this);
    const bool listed = Finish(
        lock, flow == eRender ? pa_context_get_sink_info_list(Context(), OnSink, &endpoints)
                              : pa_context_get_source_info_list(Context(), OnSource, &endpoints));
    if (!listed) {
        return std::nullopt;
    }
    return endpoints;
}

std::optional<std::string> ServerConnection::DefaultName(EDataFlow flow) {
    DefaultNames names;
    const Lock lock(*this);
    if (!Finish(lock, pa_context_get_server_info(Context(), OnServer, &names))) {
        return std::nullopt;
    }
    return flow == eRender ? names.sink : names.source;
}

} // namespace audio
