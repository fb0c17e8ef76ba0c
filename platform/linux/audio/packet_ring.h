// The packets between the sound server's thread and the capture thread: cut to one size, told
// silent or not, the oldest going when nobody reads. Knows nothing of the server or of COM.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace audio {

// One packet as the consumer holds it.
struct HeldPacket {
    float* samples;     // interleaved, in the ring itself
    bool silent;        // every sample is +0 or -0
    bool discontinuous; // it does not join on to the packet that was released before it
};

// A ring of packets for one producer (the server's main loop thread) and one consumer (whichever
// one thread reads the capture client). Neither ever waits or takes a lock, and samples are copied
// once, on their way in.
//
// A packet that the producer has finished is not readable yet: it waits until HandOn, so that the
// producer decides when packets of several rings become readable together.
//
// There is one slot more than `slackPackets`: the producer fills slot `written_`; the finished
// packets that wait run from `head_` up to before it, and the readable ones from the tail up to
// before `head_`.
//
//   head_  count of packets handed on. Written by the producer alone, with release, after their
//          slots are full; the consumer loads it with acquire and so sees the slots' samples.
//   tail_  twice the number of the oldest readable packet, plus 1 while the consumer holds that
//          packet. The consumer sets the 1 by compare-exchange and, alone, moves a held tail. The
//          producer drops the oldest by compare-exchange from a tail that is not held to the next:
//          so either the consumer gets the packet or the producer gets its slot, never both. The
//          consumer's release store and the producer's acquire load order the last read of a slot
//          before its next filling.
//
// When the ring is full and the oldest packet is held, there is no slot to free without pulling it
// from under the reader: then the newest packet is dropped instead, its slot being filled anew. A
// held packet therefore stays as it is for as long as it is held. Every packet that the producer
// finishes has a number, dropped ones included, and a gap in the numbers is what makes a packet
// discontinuous, whichever end was dropped.
//
// Whoever loads both loads the tail before the head: a head loaded first could be older than the
// tail that the producer has moved meanwhile.
class PacketRing {
public:
    PacketRing(std::size_t packetSamples, std::size_t slackPackets);

    // ---- Producer ----

    // Takes samples as they come; a null `samples` stands for `count` zeros. The count of packets
    // that have been finished, dropped ones included.
    std::size_t Write(const void* samples, std::size_t count);
    // Whether any packet finished since the last call was not silent.
    bool TakeSoundMark() { return std::exchange(soundMark_, false); }
    // Finished packets that are not readable yet.
    std::size_t Pending() const noexcept {
        return static_cast<std::size_t>(written_ - head_.load(std::memory_order_relaxed));
    }
    // Makes the oldest pending packets readable, all when there are fewer.
    void HandOn(std::size_t packets) noexcept;
    // The packet being filled has a seam in it.
    void BreakSequence() { ++sequence_; }

    // ---- Both ----

    // Packets that are readable, the held one included; to either side it may be the other's past.
    std::size_t Waiting() const noexcept {
        const std::uint64_t tail = tail_.load(std::memory_order_acquire);
        return static_cast<std::size_t>(head_.load(std::memory_order_acquire) - (tail >> 1));
    }

    // ---- Consumer ----

    bool HasPacket() const noexcept { return Waiting() > 0; }
    bool IsHolding() const noexcept { return held_; }
    // Holds the oldest packet; false when there is none. Not while holding.
    bool Hold(HeldPacket& packet) noexcept;
    // The held packet is done with, or goes back to be held again.
    void Release() noexcept;
    void PutBack() noexcept;

private:
    struct Slot {
        std::uint64_t sequence = 0;
        bool silent = false;
    };

    std::size_t SlotIndex(std::uint64_t packet) const {
        return static_cast<std::size_t>(packet % slots_.size());
    }
    float* Samples(std::size_t slot) { return &samples_[slot * packetSamples_]; }
    void FinishPacket();
    bool HaveSlotAfter(std::uint64_t finished);

    const std::size_t packetSamples_;
    std::vector<Slot> slots_;
    std::vector<float> samples_;

    // Producer's own.
    std::uint64_t written_ = 0;   // count of packets finished and kept
    std::size_t filled_ = 0;      // samples in the slot being filled
    std::uint32_t soundBits_ = 0; // any bit but the sign of any of them; 0: silence so far
    bool soundMark_ = false;      // a packet finished since TakeSoundMark was not silent
    std::uint64_t sequence_ = 0;  // number of the packet being filled

    // Consumer's own.
    bool held_ = false;
    std::uint64_t expected_ = 0; // the number that joins on to the packet released last

    std::atomic<std::uint64_t> head_{0};
    std::atomic<std::uint64_t> tail_{0};
};

} // namespace audio
