// Feeding a play-back stream from the library's loop thread.
#include "support/sound_player.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

constexpr std::chrono::seconds kPlayerPatience{10};

struct FreeLoop {
    void operator()(pa_threaded_mainloop* loop) const { pa_threaded_mainloop_free(loop); }
};
struct CloseContext {
    void operator()(pa_context* context) const {
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};
struct CloseStream {
    void operator()(pa_stream* stream) const {
        pa_stream_set_state_callback(stream, nullptr, nullptr);
        pa_stream_set_write_callback(stream, nullptr, nullptr);
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
    }
};
struct AbandonOperation {
    void operator()(pa_operation* operation) const {
        pa_operation_cancel(operation);
        pa_operation_unref(operation);
    }
};

class LoopLock {
public:
    explicit LoopLock(pa_threaded_mainloop* loop) : loop_(loop) {
        pa_threaded_mainloop_lock(loop_);
    }
    ~LoopLock() { pa_threaded_mainloop_unlock(loop_); }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;

private:
    pa_threaded_mainloop* loop_;
};

} // namespace

// Everything is guarded by the loop's lock, which the callbacks run under.
struct SoundPlayer::State {
    State(std::string sinkName, std::uint32_t sampleRate, unsigned channels, unsigned buffer)
        : sink(std::move(sinkName)), bufferMs(buffer), loop(pa_threaded_mainloop_new()) {
        format.format = PA_SAMPLE_FLOAT32NE;
        format.rate = sampleRate;
        format.channels = static_cast<std::uint8_t>(channels);
        if (!Connect()) {
            pa_threaded_mainloop_stop(loop.get()); // before its context goes
            throw std::runtime_error("the player finds no sound server");
        }
    }
    ~State() {
        {
            const LoopLock lock(loop.get());
            stream.reset();
        }
        pa_threaded_mainloop_stop(loop.get());
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    bool Connect() {
        context.reset(pa_context_new(pa_threaded_mainloop_get_api(loop.get()), "player of a test"));
        pa_threaded_mainloop_start(loop.get());
        const LoopLock lock(loop.get());
        pa_context_set_state_callback(
            context.get(),
            [](pa_context* /*context*/, void* user) {
                pa_threaded_mainloop_signal(static_cast<State*>(user)->loop.get(), 0);
            },
            this);
        pa_context_connect(context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
        return WaitUntil([this] { return pa_context_get_state(context.get()) == PA_CONTEXT_READY; },
                         kPlayerPatience);
    }

    void Play(std::span<const std::byte> samples) {
        const LoopLock lock(loop.get());
        stream.reset();
        bytes.assign(samples.begin(), samples.end());
        written = 0;
        writes.clear();

        constexpr auto kServersChoice = static_cast<std::uint32_t>(-1);
        pa_buffer_attr buffer{};
        buffer.maxlength = kServersChoice;
        buffer.tlength = static_cast<std::uint32_t>(
            pa_usec_to_bytes(pa_usec_t{bufferMs} * PA_USEC_PER_MSEC, &format));
        // The least that is not 0: a stream that runs dry waits for more, where one of 0 would go
        // on and swallow what comes late.
        buffer.prebuf = static_cast<std::uint32_t>(pa_frame_size(&format));
        buffer.minreq = kServersChoice;
        buffer.fragsize = kServersChoice;
        stream.reset(pa_stream_new(context.get(), "sound of a test", &format, nullptr));
        if (stream == nullptr) {
            throw std::runtime_error("no stream for the player");
        }
        pa_stream_set_state_callback(
            stream.get(),
            [](pa_stream* /*stream*/, void* user) {
                pa_threaded_mainloop_signal(static_cast<State*>(user)->loop.get(), 0);
            },
            this);
        pa_stream_set_write_callback(
            stream.get(),
            [](pa_stream* /*stream*/, std::size_t room, void* user) {
                static_cast<State*>(user)->Write(room);
            },
            this);
        // The server would move it along with the default.
        constexpr auto kFlags =
            static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE);
        pa_stream_connect_playback(stream.get(), sink.c_str(), &buffer, kFlags, nullptr, nullptr);
        const auto isOpen = [this] {
            return pa_stream_get_state(stream.get()) != PA_STREAM_CREATING;
        };
        if (!WaitUntil(isOpen, kPlayerPatience) ||
            pa_stream_get_state(stream.get()) != PA_STREAM_READY) {
            throw std::runtime_error("the sink " + sink + " takes no stream");
        }
    }

    // On the loop's thread.
    void Write(std::size_t room) {
        const std::size_t frameSize = pa_frame_size(&format);
        const std::size_t part = std::min(room, bytes.size() - written) / frameSize * frameSize;
        if (part == 0) {
            return;
        }
        writes.emplace_back((written + part) / frameSize, std::chrono::steady_clock::now());
        pa_stream_write(stream.get(), &bytes[written], part, nullptr, 0, PA_SEEK_RELATIVE);
        written += part;
        pa_threaded_mainloop_signal(loop.get(), 0);
    }

    bool WaitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
        struct Alarm {
            pa_threaded_mainloop* loop;
            bool rung = false;
        } alarm{loop.get()};
        const auto onTime = [](pa_mainloop_api* /*api*/, pa_time_event* /*event*/,
                               const timeval* /*time*/, void* user) {
            auto* ringing = static_cast<Alarm*>(user);
            ringing->rung = true;
            pa_threaded_mainloop_signal(ringing->loop, 0);
        };
        const auto microseconds = static_cast<pa_usec_t>(std::chrono::microseconds(limit).count());
        pa_time_event* const event =
            pa_context_rttime_new(context.get(), pa_rtclock_now() + microseconds, onTime, &alarm);
        bool isDone = done();
        while (!isDone && !alarm.rung && PA_CONTEXT_IS_GOOD(pa_context_get_state(context.get()))) {
            pa_threaded_mainloop_wait(loop.get());
            isDone = done();
        }
        pa_threaded_mainloop_get_api(loop.get())->time_free(event);
        return isDone;
    }

    bool WaitUntilPlayed(std::chrono::milliseconds limit) {
        const auto end = std::chrono::steady_clock::now() + limit;
        const LoopLock lock(loop.get());
        if (stream == nullptr || !WaitUntil([this] { return written == bytes.size(); }, limit)) {
            return false;
        }
        const auto onDrained = [](pa_stream* /*stream*/, int /*success*/, void* user) {
            pa_threaded_mainloop_signal(static_cast<State*>(user)->loop.get(), 0);
        };
        const std::unique_ptr<pa_operation, AbandonOperation> drain(
            pa_stream_drain(stream.get(), onDrained, this));
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        const auto hasEnded = [&drain] {
            return pa_operation_get_state(drain.get()) != PA_OPERATION_RUNNING;
        };
        return drain != nullptr && WaitUntil(hasEnded, left) &&
               pa_operation_get_state(drain.get()) == PA_OPERATION_DONE;
    }

    const std::string sink;
    const unsigned bufferMs;
    pa_sample_spec format{};
    std::vector<std::byte> bytes; // all that is to be played
    std::size_t written = 0;      // how many of them have gone to the server
    std::vector<std::pair<std::size_t, TimePoint>> writes; // end of each write in frames, and when

    // Given back from the last to the first.
    std::unique_ptr<pa_threaded_mainloop, FreeLoop> loop;
    std::unique_ptr<pa_context, CloseContext> context;
    std::unique_ptr<pa_stream, CloseStream> stream;
};

SoundPlayer::SoundPlayer(const std::string& sink, std::uint32_t sampleRate, unsigned channels,
                         unsigned bufferMs)
    : state_(std::make_unique<State>(sink, sampleRate, channels, bufferMs)) {}

SoundPlayer::~SoundPlayer() = default;

void SoundPlayer::Play(std::span<const float> samples) {
    state_->Play(std::as_bytes(samples));
}

std::optional<SoundPlayer::TimePoint> SoundPlayer::HandedOverAt(std::size_t frame) const {
    const LoopLock lock(state_->loop.get());
    const auto& writes = state_->writes;
    const auto found = std::upper_bound(
        writes.begin(), writes.end(), frame,
        [](std::size_t wanted, const auto& write) { return wanted < write.first; });
    if (found == writes.end()) {
        return std::nullopt;
    }
    return found->second;
}

bool SoundPlayer::WaitUntilPlayed(std::chrono::milliseconds limit) {
    return state_->WaitUntilPlayed(limit);
}
