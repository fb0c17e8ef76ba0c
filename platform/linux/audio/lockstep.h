// Streams that are listened to at once hand on their packets together. Knows rings of packets;
// nothing of the sound server or of COM.
#pragma once

#include "audio/packet_ring.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

namespace audio {

// The program adds the sources that it mixes by arrival: what each has brought since the last look,
// from the first sample on. Two devices deliver at phases of their own, so left alone they would
// take turns, and what should be a sum would be one piece after the other. Here a packet of a
// sounding stream waits, readable by nobody, until each of the other sounding streams has one as
// well; then all hand on the same number in one go, and all readers are woken after that. No timer
// and no reserve is needed for it: whatever the servers' jitter, a packet waits as long as its
// counterpart takes.
//
//   - Such steps keep kStepDistance: a mixing round lasts some milliseconds from its first packet
//     on, and a step near its end would find one reader still in it and the other one behind it.
//   - A stream that is digitally silent takes no part, nor does one that is alone: their packets
//     are handed on as they come. Silence is mixed by nobody.
//   - Clocks drift: the device that is ahead piles packets up. What has lain at rest through a
//     whole window is handed on on top, so the backlog stays bounded and nothing is lost.
//   - A stream that stops delivering is waited for no longer than kLongestWait, and not at all once
//     it has brought nothing for kPatience.
//
// All operations come from one thread at a time: the sound server's, or under its lock.
class Lockstep {
public:
    // Counts of packets, which are 10 ms each.
    static constexpr std::size_t kLongestWait = 10; // that a packet waits for the other streams
    static constexpr std::size_t kPatience = 50;    // of the others, while one brings nothing
    static constexpr std::size_t kSilenceEnds = 50; // of silence, until a stream counts as silent
    static constexpr std::size_t kWindow = 200;     // over which what lies at rest is looked for

    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kStepDistance{9};

    // One stream's part in it. Its ring and its owner outlive its membership.
    struct Member {
        // `wake` is called after every stream has handed on; its argument tells whether this one's
        // packets are sound, which nobody shall wait for.
        Member(PacketRing& ring, std::function<void(bool sound)> wakeReader)
            : packets(ring), wake(std::move(wakeReader)) {}

        PacketRing& packets;
        const std::function<void(bool sound)> wake;

        std::size_t silentRun = kSilenceEnds; // packets of silence at the end of what came
        std::size_t missed = 0;               // packets of others since this one brought any
        std::size_t atRest = 0;               // fewest pending after a step in this window
    };

    void Join(Member& member);
    // What it still has pending is handed on; its reader is not woken.
    void Leave(Member& member);
    // Samples of the stream, which is a member, have come; as PacketRing::Write takes them.
    void Arrived(Member& member, const void* samples, std::size_t count, Clock::time_point now);

private:
    static bool IsSounding(const Member& member) { return member.silentRun < kSilenceEnds; }
    void NoteArrival(Member& member, std::size_t packets);
    std::size_t CommonStep() const;
    void StepTogether(Clock::time_point now);

    std::vector<Member*> members_;
    std::size_t stepped_ = 0;    // packets handed on together in this window
    Clock::time_point nextStep_; // not before
};

} // namespace audio
