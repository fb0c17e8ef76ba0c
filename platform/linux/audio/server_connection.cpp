// Connecting, asking for the devices, and waiting with a limit.
#include "audio/server_connection.h"

#include "process/audio_priority.h"
#include "process/never_destroyed.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace audio {

namespace {

// Rings once on the loop's thread unless it goes before. Made and dropped under the loop's lock.
class Deadline {
public:
    Deadline(pa_context* context, pa_threaded_mainloop* loop, std::chrono::microseconds timeout)
        : loop_(loop), api_(pa_threaded_mainloop_get_api(loop)),
          event_(pa_context_rttime_new(
              context, pa_rtclock_now() + static_cast<pa_usec_t>(timeout.count()), OnTime, this)) {}
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

// What the server has in the place of a sound card when there is none: it plays to nowhere.
bool IsStandIn(const char* name) {
    return name != nullptr && std::string_view(name) == "auto_null";
}

// A socket may be known to be empty; a sink or source without sockets is always there.
template <typename Info>
bool IsPluggedIn(const Info& info) {
    return info.active_port == nullptr || info.active_port->available != PA_PORT_AVAILABLE_NO;
}

// Not every server gives every text.
std::string Text(const char* text) {
    return text != nullptr ? text : "";
}

Endpoint FromSink(const pa_sink_info& info) {
    return {
        eRender,          Text(info.name),  Text(info.description), Text(info.monitor_source_name),
        info.sample_spec, info.channel_map, IsPluggedIn(info)};
}

Endpoint FromSource(const pa_source_info& info) {
    return {eCapture,         Text(info.name),  Text(info.description), Text(info.name),
            info.sample_spec, info.channel_map, IsPluggedIn(info)};
}

} // namespace

const Endpoint* Devices::Default(EDataFlow flow) const {
    const std::vector<Endpoint>& endpoints = Of(flow);
    const std::string& name = flow == eRender ? defaultSink : defaultSource;
    auto chosen = std::find_if(endpoints.begin(), endpoints.end(),
                               [&name](const Endpoint& each) { return each.name == name; });
    if (chosen == endpoints.end()) {
        chosen = std::find_if(endpoints.begin(), endpoints.end(),
                              [](const Endpoint& each) { return each.pluggedIn; });
    }
    return chosen != endpoints.end() ? &*chosen : nullptr;
}

std::shared_ptr<ServerConnection> ServerConnection::Current() {
    struct Holder {
        std::mutex mutex; // guards the reference; the loop's lock may be taken under it
        std::shared_ptr<ServerConnection> connection;
    };
    // Never destroyed: whoever still captures while the process ends may ask for it.
    static Holder& holder = process::NeverDestroyed<Holder>();
    const std::lock_guard lock(holder.mutex);
    if (holder.connection == nullptr || !holder.connection->IsUsable()) {
        holder.connection.reset(new ServerConnection); // NOLINT: the constructor is private
        holder.connection->Begin();
    }
    return holder.connection;
}

bool ServerConnection::Begin() {
    loop_.reset(pa_threaded_mainloop_new());
    if (loop_ == nullptr) {
        return false;
    }
    pa_threaded_mainloop_set_name(loop_.get(), "kelvarin-sound");
    context_.reset(pa_context_new(pa_threaded_mainloop_get_api(loop_.get()), "Kelvarin"));
    if (context_ == nullptr) {
        return false;
    }
    pa_context_set_state_callback(
        context_.get(),
        [](pa_context* /*context*/, void* user) {
            static_cast<ServerConnection*>(user)->OnContextState();
        },
        this);
    pa_context_set_subscribe_callback(
        context_.get(),
        [](pa_context* /*context*/, pa_subscription_event_type_t /*event*/, std::uint32_t /*index*/,
           void* user) { static_cast<ServerConnection*>(user)->BeginAsking(); },
        this);
    // An ordinary thread would be pushed aside by the first reader that it wakes, and on a busy
    // machine be back for the next one when the mixing round is over.
    pa_mainloop_api_once(
        pa_threaded_mainloop_get_api(loop_.get()),
        [](pa_mainloop_api* /*api*/, void* /*unused*/) { process::RaiseThreadForAudio(); },
        nullptr);
    owesSince_ = Clock::now();
    ++roundsBegun_; // OnContextState asks
    // No server is started for us: that takes as long as it takes, inside the call.
    return pa_context_connect(context_.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0 &&
           pa_threaded_mainloop_start(loop_.get()) >= 0;
}

ServerConnection::~ServerConnection() {
    // The thread ends before the context goes, so no lock is needed for what follows.
    if (loop_ != nullptr) {
        pa_threaded_mainloop_stop(loop_.get());
    }
    questions_.clear();
    subscription_.reset();
}

bool ServerConnection::IsUsable() const {
    if (loop_ == nullptr || context_ == nullptr) {
        return false;
    }
    const Lock lock(*this);
    return PA_CONTEXT_IS_GOOD(pa_context_get_state(Context()));
}

void ServerConnection::OnContextState() {
    if (pa_context_get_state(Context()) == PA_CONTEXT_READY) {
        subscription_.reset(
            pa_context_subscribe(Context(), PA_SUBSCRIPTION_MASK_SERVER, nullptr, nullptr));
        SendQuestions();
    }
    WakeWaiters();
}

void ServerConnection::BeginAsking() {
    if (answersMissing_ > 0 || pa_context_get_state(Context()) != PA_CONTEXT_READY) {
        askAgain_ = answersMissing_ > 0; // else it is asked as soon as there is a server
        return;
    }
    ++roundsBegun_;
    owesSince_ = owesSince_.value_or(Clock::now());
    SendQuestions();
}

void ServerConnection::SendQuestions() {
    const auto onSink = [](pa_context* /*context*/, const pa_sink_info* info, int end, void* user) {
        auto* self = static_cast<ServerConnection*>(user);
        if (end != 0) {
            self->OnAnswerPart();
        } else if (!IsStandIn(info->name)) {
            self->arriving_.sinks.push_back(FromSink(*info));
        }
    };
    const auto onSource = [](pa_context* /*context*/, const pa_source_info* info, int end,
                             void* user) {
        auto* self = static_cast<ServerConnection*>(user);
        if (end != 0) {
            self->OnAnswerPart();
        } else if (info->monitor_of_sink == PA_INVALID_INDEX && !IsStandIn(info->name)) {
            self->arriving_.sources.push_back(FromSource(*info));
        }
    };
    const auto onServer = [](pa_context* /*context*/, const pa_server_info* info, void* user) {
        auto* self = static_cast<ServerConnection*>(user);
        if (info != nullptr) {
            self->arriving_.defaultSink = Text(info->default_sink_name);
            self->arriving_.defaultSource = Text(info->default_source_name);
        }
        self->OnAnswerPart();
    };
    arriving_ = {};
    questions_.clear();
    questions_.emplace_back(pa_context_get_sink_info_list(Context(), onSink, this));
    questions_.emplace_back(pa_context_get_source_info_list(Context(), onSource, this));
    questions_.emplace_back(pa_context_get_server_info(Context(), onServer, this));
    answersMissing_ = questions_.size();
}

void ServerConnection::OnAnswerPart() {
    if (--answersMissing_ > 0) {
        return;
    }
    devices_ = std::move(arriving_);
    roundsAnswered_ = roundsBegun_;
    owesSince_.reset();
    WakeWaiters();
    const std::vector<DeviceListener*> told = listeners_; // which may come and go meanwhile
    for (DeviceListener* const listener : told) {
        if (std::find(listeners_.begin(), listeners_.end(), listener) != listeners_.end()) {
            listener->OnDevices(*devices_);
        }
    }
    if (std::exchange(askAgain_, false)) {
        BeginAsking();
    }
}

std::chrono::milliseconds ServerConnection::OwesAnswerFor() const {
    return owesSince_ ? std::chrono::duration_cast<Milliseconds>(Clock::now() - *owesSince_)
                      : Milliseconds(0);
}

bool ServerConnection::WaitUntil(const Lock& /*lock*/, Milliseconds limit,
                                 const std::function<bool()>& done) {
    const auto begun = Clock::now();
    const auto end = owesSince_.value_or(begun) + limit;
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - begun);
    if (left.count() <= 0) {
        return done();
    }
    const Deadline deadline(Context(), loop_.get(), left);
    while (!done()) {
        if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(Context()))) {
            return false;
        }
        if (deadline.HasPassed()) {
            // Whoever asks next does not wait as long again, until the server has answered this.
            owesSince_ = owesSince_.value_or(begun);
            if (answersMissing_ == 0) {
                BeginAsking();
            }
            return false;
        }
        pa_threaded_mainloop_wait(loop_.get());
    }
    return true;
}

bool ServerConnection::Finish(const Lock& lock, Milliseconds limit, pa_operation* begun) {
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
    return WaitUntil(lock, limit, hasEnded) &&
           pa_operation_get_state(operation.get()) == PA_OPERATION_DONE;
}

std::optional<Devices> ServerConnection::AskForDevices(Milliseconds limit) {
    if (!IsUsable()) {
        return std::nullopt;
    }
    const Lock lock(*this);
    BeginAsking();
    const std::uint64_t wanted = roundsBegun_ + (askAgain_ ? 1 : 0);
    if (!WaitUntil(lock, limit, [this, wanted] { return roundsAnswered_ >= wanted; })) {
        return std::nullopt;
    }
    return devices_;
}

std::optional<Devices> ServerConnection::LastDevices() const {
    if (!IsUsable()) {
        return std::nullopt;
    }
    const Lock lock(*this);
    return devices_;
}

} // namespace audio
