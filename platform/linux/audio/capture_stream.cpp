// Opening, starting and stopping a record stream, and what the loop's thread does with its data.
#include "audio/capture_stream.h"

#include <algorithm>
#include <utility>

namespace audio {

namespace {

constexpr std::uint32_t kPacketsPerSecond = 100;
// Packets to a fragment, which the server delivers at a time; less would cost wake-ups. PipeWire
// takes the fragment for a wish and runs every device and program in the greatest power of two
// frames that fits into the least of all wishes: less than 30 ms would hurry all that plays, and on
// a busy machine it then loses whole blocks, of what others play as well.
constexpr std::size_t kFragment = 3;
// Silence is handed on 60 ms at a time: nobody hears it late, and every wake-up that it does
// without is one that the processor sleeps through. More would make a reader that is to stop notice
// it later, since it may look at nothing else meanwhile.
constexpr std::size_t kSilenceToGather = 6; // packets

// How often a running stream looks whether the server is still there.
constexpr pa_usec_t kWatchInterval = PA_USEC_PER_SEC / 2;
// How long samples may stay away before the server is asked whether it is still there.
constexpr std::chrono::seconds kQuietForLong{1};
// How long a device may take to be recorded from. PipeWire, while a default changes, may never come
// to it, and does when asked anew.
constexpr std::chrono::seconds kOpensWithin{1};

} // namespace

std::uint32_t PacketFrames(const Endpoint& endpoint) {
    const std::uint32_t rounded =
        (endpoint.format.rate + kPacketsPerSecond / 2) / kPacketsPerSecond;
    return std::max<std::uint32_t>(rounded, 1);
}

CaptureStream::CaptureStream(std::shared_ptr<ServerConnection> connection, Endpoint endpoint,
                             std::size_t slackPackets)
    : connection_(std::move(connection)), endpoint_(std::move(endpoint)),
      packetFrames_(PacketFrames(endpoint_)),
      // Nothing may be lost for it in a short buffer.
      silenceToGather_(std::min(kSilenceToGather, slackPackets / 2)),
      packets_(std::size_t{packetFrames_} * endpoint_.format.channels, slackPackets),
      step_(packets_,
            [this](bool sound) {
                if (sound || packets_.Waiting() >= silenceToGather_) {
                    WakeReader();
                }
            }),
      source_(endpoint_.source) {}

CaptureStream::~CaptureStream() {
    const ServerConnection::Lock lock(*connection_);
    Halt();
    connection_->RemoveListener(*this);
    next_.reset();
    stream_.reset();
}

std::shared_ptr<CaptureStream> CaptureStream::Open(std::shared_ptr<ServerConnection> connection,
                                                   const Endpoint& endpoint,
                                                   std::size_t slackPackets) {
    std::shared_ptr<CaptureStream> stream(std::unique_ptr<CaptureStream>(
        new CaptureStream(std::move(connection), endpoint, slackPackets)));
    return stream->Connect() ? stream : nullptr;
}

bool CaptureStream::Connect() {
    const ServerConnection::Lock lock(*connection_);
    stream_ = BeginRecording(source_, true);
    if (stream_ == nullptr || !connection_->WaitUntil(lock, ServerConnection::kAnswerLimit, [this] {
            return stream_ == nullptr || pa_stream_get_state(stream_.get()) != PA_STREAM_CREATING;
        })) {
        return false;
    }
    if (stream_ == nullptr || pa_stream_get_state(stream_.get()) != PA_STREAM_READY) {
        return false;
    }
    if (endpoint_.followsDefault) {
        connection_->AddListener(*this);
    }
    return true;
}

// A record stream that is on its way; null when the server is gone. On the loop's thread or under
// a Lock.
CaptureStream::Stream CaptureStream::BeginRecording(const std::string& source, bool corked) {
    const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, endpoint_.format.rate,
                                endpoint_.format.channels};
    // Small fragments, and PA_STREAM_ADJUST_LATENCY to make the device itself work in pieces of
    // that length: left alone, it hands on seconds at a time. A stream that the server moves to
    // another device would go on with that device's sound under this one's name.
    const auto flags =
        static_cast<pa_stream_flags_t>((corked ? PA_STREAM_START_CORKED : PA_STREAM_NOFLAGS) |
                                       PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE);
    constexpr auto kServersChoice = static_cast<std::uint32_t>(-1);
    pa_buffer_attr buffer{};
    buffer.maxlength = kServersChoice;
    buffer.tlength = kServersChoice;
    buffer.prebuf = kServersChoice;
    buffer.minreq = kServersChoice;
    buffer.fragsize =
        static_cast<std::uint32_t>(kFragment * packetFrames_ * pa_frame_size(&format));

    Stream stream(pa_stream_new(connection_->Context(), "Captions", &format, &endpoint_.channels));
    if (stream == nullptr) {
        return nullptr;
    }
    pa_stream_set_state_callback(stream.get(), OnState, this);
    pa_stream_set_read_callback(stream.get(), OnReadable, this);
    if (pa_stream_connect_record(stream.get(), source.c_str(), &buffer, flags) < 0) {
        return nullptr;
    }
    return stream;
}

void CaptureStream::SetReadyEvent(HANDLE event) {
    const ServerConnection::Lock lock(*connection_);
    readyEvent_ = event;
}

bool CaptureStream::Start() {
    const ServerConnection::Lock lock(*connection_);
    if (!IsAlive()) {
        return false;
    }
    running_ = true; // before the answer comes: samples may be ahead of it
    lastSign_ = Clock::now();
    connection_->Steps().Join(step_);
    if (!Cork(lock, ServerConnection::kAnswerLimit, false)) {
        Halt();
        return false;
    }
    WatchAgainLater();
    return true;
}

void CaptureStream::Stop() {
    const ServerConnection::Lock lock(*connection_);
    if (!running_) {
        return;
    }
    next_.reset();
    Cork(lock, ServerConnection::kShortLimit, true);
    // What was on its way has come before the answer: from here on there is a gap.
    Halt();
    packets_.BreakSequence();
    if (packets_.HasPacket()) {
        WakeReader(); // no more silence will gather
    }
}

// Nothing that comes from here on is taken.
void CaptureStream::Halt() {
    if (std::exchange(running_, false)) {
        connection_->Steps().Leave(step_);
    }
    StopWatching();
}

bool CaptureStream::Cork(const ServerConnection::Lock& lock, ServerConnection::Milliseconds limit,
                         bool corked) {
    if (stream_ == nullptr || pa_stream_get_state(stream_.get()) != PA_STREAM_READY) {
        return false;
    }
    bool done = false;
    const auto onDone = [](pa_stream* /*stream*/, int success, void* user) {
        *static_cast<bool*>(user) = success != 0;
    };
    pa_operation* const request = pa_stream_cork(stream_.get(), corked ? 1 : 0, onDone, &done);
    return connection_->Finish(lock, limit, request) && done;
}

void CaptureStream::OnState(pa_stream* stream, void* user) {
    auto* self = static_cast<CaptureStream*>(user);
    if (stream == self->next_.get()) {
        self->OnNewDeviceState();
    } else if (!PA_STREAM_IS_GOOD(pa_stream_get_state(stream))) {
        self->OnLost();
    }
    self->connection_->WakeWaiters();
}

// The device of the stream, or the server, has gone.
void CaptureStream::OnLost() {
    if (!endpoint_.followsDefault || !running_ ||
        !PA_CONTEXT_IS_GOOD(pa_context_get_state(connection_->Context()))) {
        Die();
        return;
    }
    // The watch gives up when no other device comes. What is here of the old one stays readable.
    stream_.reset();
    source_.clear();
    lastSign_ = Clock::now();
    packets_.BreakSequence();
    connection_->BeginAsking();
}

void CaptureStream::Die() {
    alive_.store(false, std::memory_order_release);
    Halt();
    WakeReader();
}

// ---- Following the default --------------------------------------------------------------------

void CaptureStream::OnDevices(const Devices& devices) {
    const Endpoint* const chosen = devices.Default(endpoint_.flow);
    if (!running_ || chosen == nullptr || chosen->source == (next_ ? nextSource_ : source_)) {
        return;
    }
    nextSource_ = chosen->source;
    nextBegun_ = Clock::now();
    next_ = BeginRecording(nextSource_, false);
}

void CaptureStream::OnNewDeviceState() {
    const pa_stream_state_t state = pa_stream_get_state(next_.get());
    if (state == PA_STREAM_READY) {
        stream_ = std::move(next_);
        source_ = nextSource_;
        packets_.BreakSequence();
    } else if (!PA_STREAM_IS_GOOD(state)) {
        next_.reset(); // the old one goes on, if there is one; else the watch asks again
    }
}

// ---- Watching the server ----------------------------------------------------------------------

void CaptureStream::WatchAgainLater() {
    const pa_usec_t at = pa_rtclock_now() + kWatchInterval;
    if (watch_ != nullptr) {
        pa_context_rttime_restart(connection_->Context(), watch_, at);
        return;
    }
    watch_ = pa_context_rttime_new(
        connection_->Context(), at,
        [](pa_mainloop_api* /*api*/, pa_time_event* /*event*/, const timeval* /*time*/,
           void* user) { static_cast<CaptureStream*>(user)->Watch(); },
        this);
}

void CaptureStream::StopWatching() {
    if (watch_ != nullptr) {
        connection_->CancelTimer(std::exchange(watch_, nullptr));
    }
}

// A server that hangs closes nothing: no state changes, samples just stop coming. They also stop
// while a device is suspended, which only the server can tell. And not every server tells of a new
// default when it has one, so a stream that follows it asks.
void CaptureStream::Watch() {
    const auto now = Clock::now();
    const auto quiet = now - lastSign_;
    const bool isLost = stream_ == nullptr && quiet >= kFindsDeviceWithin;
    if (isLost || (quiet >= kGivesUpAfter && connection_->OwesAnswerFor() >= kGivesUpAfter)) {
        Die();
        return;
    }
    if (next_ != nullptr && now - nextBegun_ >= kOpensWithin) {
        next_.reset();
    }
    if (endpoint_.followsDefault || quiet >= kQuietForLong) {
        connection_->BeginAsking();
    }
    WatchAgainLater();
}

// ---- Samples ----------------------------------------------------------------------------------

void CaptureStream::OnReadable(pa_stream* stream, std::size_t /*bytes*/, void* user) {
    auto* self = static_cast<CaptureStream*>(user);
    if (stream == self->stream_.get()) {
        self->TakeFragments();
    }
}

void CaptureStream::TakeFragments() {
    lastSign_ = Clock::now();
    const void* data = nullptr; // null with a length: a hole, which stands for zeros
    std::size_t bytes = 0;
    while (pa_stream_peek(stream_.get(), &data, &bytes) == 0 && bytes > 0) {
        if (running_) {
            connection_->Steps().Arrived(step_, data, bytes / sizeof(float), lastSign_);
        }
        pa_stream_drop(stream_.get());
    }
}

void CaptureStream::WakeReader() {
    packetsReady_->Set();
    if (readyEvent_ != nullptr) {
        SetEvent(readyEvent_);
    }
}

} // namespace audio
