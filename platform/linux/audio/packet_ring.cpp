// The ring's two sides; the reasons for the orderings stand at the class.
#include "audio/packet_ring.h"

#include <algorithm>
#include <cstring>

namespace audio {

namespace {

// The magnitude bits of all samples together: 0 when each is +0 or -0. As integers, since a
// comparison of floats would take a NaN for sound only by luck of how it is written.
std::uint32_t MagnitudeBits(const float* samples, std::size_t count) {
    std::uint32_t all = 0;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &samples[i], sizeof bits);
        all |= bits;
    }
    return all & 0x7FFFFFFFU;
}

} // namespace

PacketRing::PacketRing(std::size_t packetSamples, std::size_t slackPackets)
    : packetSamples_(packetSamples), slots_(slackPackets + 1),
      samples_(packetSamples * (slackPackets + 1)) {}

std::size_t PacketRing::Write(const void* samples, std::size_t count) {
    std::size_t finished = 0;
    const auto* source = static_cast<const BYTE*>(samples);
    while (count > 0) {
        const std::size_t part = std::min(count, packetSamples_ - filled_);
        float* const target = Samples(SlotIndex(written_)) + filled_;
        if (source == nullptr) {
            std::fill_n(target, part, 0.0F);
        } else {
            std::memcpy(target, source, part * sizeof(float));
            source += part * sizeof(float);
            soundBits_ |= MagnitudeBits(target, part);
        }
        filled_ += part;
        count -= part;
        if (filled_ == packetSamples_) {
            FinishPacket();
            ++finished;
        }
    }
    return finished;
}

void PacketRing::FinishPacket() {
    slots_[SlotIndex(written_)] = {sequence_, soundBits_ == 0};
    soundMark_ = soundMark_ || soundBits_ != 0;
    filled_ = 0;
    soundBits_ = 0;
    ++sequence_;
    if (HaveSlotAfter(written_)) {
        ++written_;
    } // else the slot is filled anew
}

void PacketRing::HandOn(std::size_t packets) noexcept {
    const std::uint64_t head = head_.load(std::memory_order_relaxed);
    head_.store(std::min(head + packets, written_), std::memory_order_release);
}

// Whether the slot after the one just filled is free, the oldest packet dropped for it if need be.
bool PacketRing::HaveSlotAfter(std::uint64_t finished) {
    const std::uint64_t slack = slots_.size() - 1;
    std::uint64_t tail = tail_.load(std::memory_order_acquire);
    if (finished - (tail >> 1) < slack) {
        return true;
    }
    if (Pending() == finished - (tail >> 1)) {
        HandOn(1); // nothing else is readable: the oldest may only be dropped once it is
    }
    if ((tail & 1) != 0) {
        return false;
    }
    if (tail_.compare_exchange_strong(tail, tail + 2, std::memory_order_acq_rel,
                                      std::memory_order_acquire)) {
        return true;
    }
    // The consumer was here meanwhile: it holds that packet now, or is through with it.
    return finished - (tail >> 1) < slack;
}

bool PacketRing::Hold(HeldPacket& packet) noexcept {
    std::uint64_t tail = tail_.load(std::memory_order_acquire);
    do {
        if ((tail >> 1) >= head_.load(std::memory_order_acquire)) {
            return false;
        }
        // Again when the producer has just dropped this very packet.
    } while (!tail_.compare_exchange_weak(tail, tail | 1, std::memory_order_acq_rel,
                                          std::memory_order_acquire));
    held_ = true;
    const std::size_t slot = SlotIndex(tail >> 1);
    packet = {Samples(slot), slots_[slot].silent, slots_[slot].sequence != expected_};
    return true;
}

void PacketRing::Release() noexcept {
    const std::uint64_t tail = tail_.load(std::memory_order_relaxed);
    expected_ = slots_[SlotIndex(tail >> 1)].sequence + 1;
    held_ = false;
    tail_.store((tail >> 1) * 2 + 2, std::memory_order_release);
}

void PacketRing::PutBack() noexcept {
    held_ = false;
    tail_.store(tail_.load(std::memory_order_relaxed) & ~std::uint64_t{1},
                std::memory_order_release);
}

} // namespace audio
