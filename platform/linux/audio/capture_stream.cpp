// Opening, starting and stopping a record stream, and what the loop's thread does with its data.
#include "audio/capture_stream.h"

#include <algorithm>
#include <utility>

namespace audio {

namespace {

constexpr std::uint32_t kPacketsPerSecond = 100;
// Fewer to a fragment cost wake-ups and gained nothing that was measurable.
constexpr std::size_t kPacketsPerFragment = 3;
// Silence is handed on two fragments at a time: nobody hears it late, and every wake-up that it
// does without is one that the processor sleeps through. More would make a reader that is to stop
// notice it later, since it may look at nothing else meanwhile.
constexpr std::size_t kSilenceToGather = 2 * kPacketsPerFragment;

} // namespace

std::uint32_t PacketFrames(const Endpoint& endpoint) {
    const std::uint32_t rounded =
        (endpoint.format.rate + kPacketsPerSecond / 2) / kPacketsPerSecond;
    return std::max<std::uint32_t>(rounded, 1);
}

CaptureStream::CaptureStream(std::shared_ptr<ServerConnection> connection, const Endpoint& endpoint,
                             std::size_t slackPackets)
    : connection_(std::move(connection)), packetFrames_(PacketFrames(endpoint)),
      // Nothing may be lost for it in a short buffer.
      silenceToGather_(std::min(kSilenceToGather, slackPackets / 2)),
      packets_(std::size_t{packetFrames_} * endpoint.format.channels, slackPackets) {}

CaptureStream::~CaptureStream() {
    const ServerConnection::Lock lock(*connection_);
    stream_.reset();
}

std::shared_ptr<CaptureStream> CaptureStream::Open(std::shared_ptr<ServerConnection> connection,
                                                   const Endpoint& endpoint,
                                                   std::size_t slackPackets) {
    std::shared_ptr<CaptureStream> stream(std::unique_ptr<CaptureStream>(
        new CaptureStream(std::move(connection), endpoint, slackPackets)));
    return stream->Connect(endpoint) ? stream : nullptr;
}

bool CaptureStream::Connect(const Endpoint& endpoint) {
    const pa_sample_spec format{PA_SAMPLE_FLOAT32NE, endpoint.format.rate,
                                endpoint.format.channels};
    // Small fragments, and PA_STREAM_ADJUST_LATENCY to make the device itself work in pieces of
    // that length: left alone, it hands on seconds at a time. A stream that could be
    // moved to another device would go on with that device's sound under this one's name.
    const auto flags = static_cast<pa_stream_flags_t>(
        PA_STREAM_START_CORKED | PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE);
    constexpr auto kServersChoice = static_cast<std::uint32_t>(-1);
    pa_buffer_attr buffer{};
    buffer.maxlength = kServersChoice;
    buffer.tlength = kServersChoice;
    buffer.prebuf = kServersChoice;
    buffer.minreq = kServersChoice;
    buffer.fragsize =
        static_cast<std::uint32_t>(kPacketsPerFragment * packetFrames_ * pa_frame_size(&format));

    const ServerConnection::Lock lock(*connection_);
    stream_.reset(pa_stream_new(connection_->Context(), "Captions", &format, &endpoint.channels));
    if (stream_ == nullptr) {
        return false;
    }
    pa_stream_set_state_callback(stream_.get(), OnState, this);
    pa_stream_set_read_callback(stream_.get(), OnReadable, this);
    if (pa_stream_connect_record(stream_.get(), endpoint.source.c_str(), &buffer, flags) < 0) {
        return false;
    }
    return connection_->WaitUntil(lock, [this] {
        return pa_stream_get_state(stream_.get()) != PA_STREAM_CREATING;
    }) && pa_stream_get_state(stream_.get()) == PA_STREAM_READY;
}

void CaptureStream::SetReadyEvent(HANDLE event) {
    const ServerConnection::Lock lock(*connection_);
    readyEvent_ = event;
}

bool CaptureStream::Start() {
    const ServerConnection::Lock lock(*connection_);
    return Cork(lock, false);
}

bool CaptureStream::Stop() {
    const ServerConnection::Lock lock(*connection_);
    const bool stopped = Cork(lock, true);
    // What was on its way has come before the answer: from here on there is a gap.
    packets_.BreakSequence();
    if (packets_.HasPacket()) {
        WakeReader(); // no more silence will gather
    }
    return stopped;
}

bool CaptureStream::Cork(const ServerConnection::Lock& lock, bool corked) {
    if (pa_stream_get_state(stream_.get()) != PA_STREAM_READY) {
        return false;
    }
    bool done = false;
    const auto onDone = [](pa_stream* /*stream*/, int success, void* user) {
        *static_cast<bool*>(user) = success != 0;
    };
    pa_operation* const request = pa_stream_cork(stream_.get(), corked ? 1 : 0, onDone, &done);
    return connection_->Finish(lock, request) && done;
}

void CaptureStream::OnState(pa_stream* stream, void* user) {
    auto* self = static_cast<CaptureStream*>(user);
    if (!PA_STREAM_IS_GOOD(pa_stream_get_state(stream))) {
        self->alive_.store(false, std::memory_order_release);
        self->WakeReader();
    }
    self->connection_->WakeWaiters();
}

void CaptureStream::OnReadable(pa_stream* /*stream*/, std::size_t /*bytes*/, void* user) {
    static_cast<CaptureStream*>(user)->TakeFragments();
}

void CaptureStream::TakeFragments() {
    bool ready = false;
    const void* data = nullptr; // null with a length: a hole, which stands for zeros
    std::size_t bytes = 0;
    while (pa_stream_peek(stream_.get(), &data, &bytes) == 0 && bytes > 0) {
        ready = packets_.Write(data, bytes / sizeof(float)) || ready;
        pa_stream_drop(stream_.get());
    }
    // Taken in any case: a mark left over would wake the reader for silence later.
    const bool sound = packets_.TakeSoundMark();
    if (ready && (sound || packets_.Waiting() >= silenceToGather_)) {
        WakeReader();
    }
}

void CaptureStream::WakeReader() {
    packetsReady_->Set();
    if (readyEvent_ != nullptr) {
        SetEvent(readyEvent_);
    }
}

} // namespace audio
