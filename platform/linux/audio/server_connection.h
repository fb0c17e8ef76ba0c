// The connection to the sound server, and the one place that waits for it. Knows contexts and
// requests; nothing of packets or of COM.
#pragma once

#include "audio/endpoint.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <pulse/pulseaudio.h>

namespace audio {

// A request under way; given up when its owner goes, after which its callback does not run.
struct AbandonOperation {
    void operator()(pa_operation* operation) const {
        pa_operation_cancel(operation);
        pa_operation_unref(operation);
    }
};
using Operation = std::unique_ptr<pa_operation, AbandonOperation>;

// One context with its main loop thread, shared by the enumerator, its devices and their streams,
// and closed by whichever of them goes last. Operations may be called from any thread but the
// loop's own. The library's loop lock guards everything of the library's. The callbacks run
// under it, on the loop's thread or in a call that holds it; no other lock is taken under it but an
// event's own.
//
// Every wait is bounded: a server that takes longer than kAnswerTimeoutMs is taken for gone, the
// connection is closed, and what is asked of it from then on fails at once.
class ServerConnection {
public:
    static constexpr unsigned kAnswerTimeoutMs = 3000;

    // Null when no server answers.
    static std::shared_ptr<ServerConnection> Open();
    ~ServerConnection();
    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;

    // The endpoints of a flow in the server's order; nothing when the server is gone.
    std::optional<std::vector<Endpoint>> ListEndpoints(EDataFlow flow);
    // The server's default, by name; a monitor's name or an empty one is possible.
    std::optional<std::string> DefaultName(EDataFlow flow);

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
    // Waits until `done`, which is asked anew whenever WakeWaiters has been called. False when the
    // server is gone or takes too long. The lock is let go while waiting.
    bool WaitUntil(const Lock& lock, const std::function<bool()>& done);
    // Waits for a request to end; false also when it never began.
    bool Finish(const Lock& lock, pa_operation* begun);
    // On the loop's thread, or under a Lock.
    void WakeWaiters() const { pa_threaded_mainloop_signal(loop_.get(), 0); }

private:
    struct FreeLoop {
        void operator()(pa_threaded_mainloop* loop) const { pa_threaded_mainloop_free(loop); }
    };
    struct CloseContext {
        void operator()(pa_context* context) const {
            pa_context_set_state_callback(context, nullptr, nullptr);
            pa_context_disconnect(context);
            pa_context_unref(context);
        }
    };

    ServerConnection() = default;
    bool Connect();

    std::unique_ptr<pa_threaded_mainloop, FreeLoop> loop_;
    std::unique_ptr<pa_context, CloseContext> context_;
};

} // namespace audio
