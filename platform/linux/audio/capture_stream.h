// One record stream of the sound server, cut into packets. Knows the server and the ring; nothing
// of COM.
#pragma once

#include "audio/endpoint.h"
#include "audio/lockstep.h"
#include "audio/packet_ring.h"
#include "audio/server_connection.h"
#include "process/event.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

namespace audio {

// Frames of 10 ms, rounded; every packet of a stream has as many.
std::uint32_t PacketFrames(const Endpoint& endpoint);

// Open, Start, Stop and SetReadyEvent are called by one thread at a time, not the loop's; Packets
// by the one thread that consumes; IsAlive by any. The loop's thread writes the ring, ends `alive_`
// and sets the events, of which the loop's lock guards the caller's together with the stream.
//
// A stream on an endpoint that follows the default goes on, in the format that it was opened with,
// on whatever the default becomes. Any other one never moves: when its device goes, it dies.
// A stream also dies when the server stops answering while nothing comes from it.
class CaptureStream final : private DeviceListener {
public:
    // A stream whose server has not answered for as long dies.
    static constexpr std::chrono::seconds kGivesUpAfter{3};
    // So does one that follows the default when it has found no other device for as long.
    static constexpr std::chrono::seconds kFindsDeviceWithin{5};

    // Opens a stream that is stopped. Null when the device or the server is gone.
    static std::shared_ptr<CaptureStream> Open(std::shared_ptr<ServerConnection> connection,
                                               const Endpoint& endpoint, std::size_t slackPackets);
    ~CaptureStream() override;
    CaptureStream(const CaptureStream&) = delete;
    CaptureStream& operator=(const CaptureStream&) = delete;

    // Set whenever PacketsReady is; not after the destructor.
    void SetReadyEvent(HANDLE event);
    // Comes back once the server has done it; false when there is no server or no stream.
    bool Start();
    // Nothing becomes ready any more when it comes back, whether the server has answered or not.
    void Stop();

    bool IsAlive() const noexcept { return alive_.load(std::memory_order_acquire); }
    PacketRing& Packets() { return packets_; }
    std::uint32_t FramesPerPacket() const { return packetFrames_; }
    // Set when a packet becomes ready that is not silent, when silent ones have gathered, when the
    // stream stops with packets waiting, and when it dies: what a thread waits for that polls.
    const std::shared_ptr<process::Event>& PacketsReady() const { return packetsReady_; }

private:
    using Clock = std::chrono::steady_clock;

    struct CloseStream {
        void operator()(pa_stream* stream) const {
            pa_stream_set_state_callback(stream, nullptr, nullptr);
            pa_stream_set_read_callback(stream, nullptr, nullptr);
            pa_stream_disconnect(stream);
            pa_stream_unref(stream);
        }
    };
    using Stream = std::unique_ptr<pa_stream, CloseStream>;

    CaptureStream(std::shared_ptr<ServerConnection> connection, Endpoint endpoint,
                  std::size_t slackPackets);
    bool Connect();
    Stream BeginRecording(const std::string& source, bool corked);
    void Halt();
    bool Cork(const ServerConnection::Lock& lock, ServerConnection::Milliseconds limit,
              bool corked);
    void TakeFragments();
    void WakeReader();
    void Die();

    void OnDevices(const Devices& devices) override;
    void OnNewDeviceState();
    void OnLost();

    void Watch();
    void WatchAgainLater();
    void StopWatching();

    static void OnState(pa_stream* stream, void* user);
    static void OnReadable(pa_stream* stream, std::size_t bytes, void* user);

    const std::shared_ptr<ServerConnection> connection_;
    const Endpoint endpoint_;
    const std::uint32_t packetFrames_;
    const std::size_t silenceToGather_; // packets
    PacketRing packets_;
    const std::shared_ptr<process::Event> packetsReady_ =
        std::make_shared<process::Event>(false, false);
    std::atomic<bool> alive_{true}; // false once the device or the server has gone; for good

    // All below under the loop's lock.
    Lockstep::Member step_;
    HANDLE readyEvent_ = nullptr; // the caller's
    std::string source_;          // what is recorded from, or was last
    Stream stream_;               // null while a following stream has no device
    Stream next_;                 // on its way to take the place of `stream_`
    std::string nextSource_;
    Clock::time_point nextBegun_;
    bool running_ = false;           // between Start and Stop
    Clock::time_point lastSign_;     // when samples last came, or might not have had to
    pa_time_event* watch_ = nullptr; // rings while running
};

} // namespace audio
