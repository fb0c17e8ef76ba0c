// The connection to the sound server, what the server says of its devices, and the one place that
// waits for it. Knows contexts and requests; nothing of packets or of COM.
#pragma once

#include "audio/endpoint.h"
#include "audio/lockstep.h"

#include <pulse/pulseaudio.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace audio {

// A request under way; given up when its owner goes, after which its callback does not run.
struct AbandonOperation {
    void operator()(pa_operation* operation) const {
        pa_operation_cancel(operation);
        pa_operation_unref(operation);
    }
};
using Operation = std::unique_ptr<pa_operation, AbandonOperation>;

// What the server has at one moment.
struct Devices {
    std::vector<Endpoint> sinks; // in the server's order, like the sources
    std::vector<Endpoint> sources;
    std::string defaultSink; // by name; may be none of ours, a monitor for example, or empty
    std::string defaultSource;

    const std::vector<Endpoint>& Of(EDataFlow flow) const {
        return flow == eRender ? sinks : sources;
    }
    // The default that can be listened to: the server's own or, when that is none of ours, the
    // first that is plugged in. Null when there is none.
    const Endpoint* Default(EDataFlow flow) const;
};

// Who wants to know of new defaults; told on the loop's thread, under its lock.
class DeviceListener {
public:
    DeviceListener() = default;
    virtual ~DeviceListener() = default;
    DeviceListener(const DeviceListener&) = delete;
    DeviceListener& operator=(const DeviceListener&) = delete;

    virtual void OnDevices(const Devices& devices) = 0;
};

// One context with its main loop thread, shared by the enumerators, their devices and their
// streams. Operations may be called from any thread but the loop's own, unless they say otherwise.
// The library's loop lock guards everything of the library's and all members here. The callbacks
// run under it, on the loop's thread or in a call that holds it; no other lock is taken under it
// but an event's own.
//
// Every wait is bounded, and a server that does not answer is waited for once: the limits count
// from the oldest question that it owes an answer to, whoever asked it. Once that has come, calls
// fail or fall back at once until the server answers again; the connection stays for that.
class ServerConnection {
public:
    using Milliseconds = std::chrono::milliseconds;
    // For what a run needs: opening and starting a stream.
    static constexpr Milliseconds kAnswerLimit{3000};
    // For what a window may be waiting for: lists, and ending a stream.
    static constexpr Milliseconds kShortLimit{250};

    // The process's one connection, begun if there is none or the last one has broken. It may still
    // be on its way.
    static std::shared_ptr<ServerConnection> Current();
    ~ServerConnection();
    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;

    // What the server has now. Nothing when it is gone or does not answer within the limit.
    std::optional<Devices> AskForDevices(Milliseconds limit);
    // What it last said; nothing when it never has or is gone.
    std::optional<Devices> LastDevices() const;

    // ---- For streams ----

    class Lock {
    public:
        explicit Lock(const ServerConnection& connection) : loop_(connection.loop_.get()) {
            pa_threaded_mainloop_lock(loop_);
        }
        ~Lock() { pa_threaded_mainloop_unlock(loop_); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pa_threaded_mainloop* loop_;
    };

    pa_context* Context() const { return context_.get(); }
    // Streams of one connection hand on in step; under a Lock.
    Lockstep& Steps() { return steps_; }
    // Waits until `done`, which is asked anew whenever WakeWaiters has been called. False when the
    // server is gone or takes too long. The lock is let go while waiting.
    bool WaitUntil(const Lock& lock, Milliseconds limit, const std::function<bool()>& done);
    // Waits for a request to end; false also when it never began.
    bool Finish(const Lock& lock, Milliseconds limit, pa_operation* begun);
    // On the loop's thread, or under a Lock.
    void WakeWaiters() const { pa_threaded_mainloop_signal(loop_.get(), 0); }

    // Under a Lock. A listener is told whenever the server has described its devices anew, which it
    // does when a default changes, and when someone asks.
    void AddListener(DeviceListener& listener) { listeners_.push_back(&listener); }
    void RemoveListener(DeviceListener& listener) { std::erase(listeners_, &listener); }
    // Asks the server to describe its devices, without waiting; under a Lock, or on the loop's
    // thread. A question already on its way is followed by another.
    void BeginAsking();
    // Ends a timer of the context's; on the loop's thread or under a Lock.
    void CancelTimer(pa_time_event* timer) const {
        pa_threaded_mainloop_get_api(loop_.get())->time_free(timer);
    }
    // For how long the server has owed an answer; 0 when it owes none.
    Milliseconds OwesAnswerFor() const;

private:
    using Clock = std::chrono::steady_clock;

    struct FreeLoop {
        void operator()(pa_threaded_mainloop* loop) const { pa_threaded_mainloop_free(loop); }
    };
    struct CloseContext {
        void operator()(pa_context* context) const {
            pa_context_set_state_callback(context, nullptr, nullptr);
            pa_context_set_subscribe_callback(context, nullptr, nullptr);
            pa_context_disconnect(context);
            pa_context_unref(context);
        }
    };

    ServerConnection() = default;
    bool Begin();
    bool IsUsable() const;
    void OnContextState();
    void OnAnswerPart();
    void SendQuestions();

    std::unique_ptr<pa_threaded_mainloop, FreeLoop> loop_;
    std::unique_ptr<pa_context, CloseContext> context_;
    Lockstep steps_;
    std::vector<DeviceListener*> listeners_;

    // Asking for the devices takes several requests, whose answers gather in `arriving_`.
    std::vector<Operation> questions_; // of the round under way; empty without one
    Operation subscription_;
    std::size_t answersMissing_ = 0; // of that round
    bool askAgain_ = false;          // something may have changed since it began
    Devices arriving_;
    std::optional<Devices> devices_;             // of the last whole round
    std::uint64_t roundsBegun_ = 0;              // counts, to tell a fresh answer from an old one
    std::uint64_t roundsAnswered_ = 0;           // the number of the last round that was answered
    std::optional<Clock::time_point> owesSince_; // the oldest question without an answer
};

} // namespace audio
