// One record stream of the sound server, cut into packets. Knows the server and the ring; nothing
// of COM.
#pragma once

#include "audio/endpoint.h"
#include "audio/packet_ring.h"
#include "audio/server_connection.h"
#include "process/event.h"

#include <atomic>
#include <memory>

namespace audio {

// Frames of 10 ms, rounded; every packet of a stream has as many.
std::uint32_t PacketFrames(const Endpoint& endpoint);

// Open, Start, Stop and SetReadyEvent are called by one thread at a time, not the loop's; Packets
// by the one thread that consumes; IsAlive by any. The loop's thread writes the ring, ends `alive_`
// and sets the events, of which the loop's lock guards the caller's together with the stream.
class CaptureStream {
public:
    // Opens a stream that is stopped. Null when the device or the server is gone.
    static std::shared_ptr<CaptureStream> Open(std::shared_ptr<ServerConnection> connection,
                                               const Endpoint& endpoint, std::size_t slackPackets);
    ~CaptureStream();
    CaptureStream(const CaptureStream&) = delete;
    CaptureStream& operator=(const CaptureStream&) = delete;

    // Set whenever PacketsReady is; not after the destructor.
    void SetReadyEvent(HANDLE event);
    // Each comes back once the server has done it; false when there is no server or no stream.
    bool Start();
    bool Stop();

    bool IsAlive() const noexcept { return alive_.load(std::memory_order_acquire); }
    PacketRing& Packets() { return packets_; }
    std::uint32_t FramesPerPacket() const { return packetFrames_; }
    // Set when a packet becomes ready that is not silent, when silent ones have gathered, when the
    // stream stops with packets waiting, and when it dies: what a thread waits for that polls.
    const std::shared_ptr<process::Event>& PacketsReady() const { return packetsReady_; }

private:
    struct CloseStream {
        void operator()(pa_stream* stream) const {
            pa_stream_set_state_callback(stream, nullptr, nullptr);
            pa_stream_set_read_callback(stream, nullptr, nullptr);
            pa_stream_disconnect(stream);
            pa_stream_unref(stream);
        }
    };

    CaptureStream(std::shared_ptr<ServerConnection> connection, const Endpoint& endpoint,
                  std::size_t slackPackets);
    bool Connect(const Endpoint& endpoint);
    bool Cork(const ServerConnection::Lock& lock, bool corked);
    void TakeFragments();
    void WakeReader();
    static void OnState(pa_stream* stream, void* user);
    static void OnReadable(pa_stream* stream, std::size_t bytes, void* user);

    const std::shared_ptr<ServerConnection> connection_;
    const std::uint32_t packetFrames_;
    const std::size_t silenceToGather_; // packets
    PacketRing packets_;
    const std::shared_ptr<process::Event> packetsReady_ =
        std::make_shared<process::Event>(false, false);
    std::atomic<bool> alive_{true}; // false once the device or the server has gone; for good
    HANDLE readyEvent_ = nullptr;   // the caller's; under the loop's lock
    std::unique_ptr<pa_stream, CloseStream> stream_; // under the loop's lock
};

} // namespace audio
