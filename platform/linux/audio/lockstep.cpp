// Who waits for whom, and who is woken.
#include "audio/lockstep.h"

#include <algorithm>
#include <limits>

namespace audio {

namespace {

constexpr std::size_t kNothingSeen = std::numeric_limits<std::size_t>::max();

} // namespace

void Lockstep::Join(Member& member) {
    members_.push_back(&member);
    member.silentRun = kSilenceEnds;
    member.missed = 0;
    member.atRest = kNothingSeen;
}

void Lockstep::Leave(Member& member) {
    std::erase(members_, &member);
    member.packets.HandOn(member.packets.Pending());
}

void Lockstep::Arrived(Member& member, const void* samples, std::size_t count,
                       Clock::time_point now) {
    const std::size_t finished = member.packets.Write(samples, count);
    if (finished == 0) {
        return;
    }
    NoteArrival(member, finished);
    const auto sounding = std::count_if(members_.begin(), members_.end(),
                                        [](const Member* each) { return IsSounding(*each); });
    if (IsSounding(member) && sounding > 1) {
        StepTogether(now);
        return;
    }
    // Alone, or silent. The others have nothing pending unless this one has just ceased to count.
    for (Member* const each : members_) {
        if (each == &member || sounding <= 1) {
            each->atRest = kNothingSeen;
            if (const std::size_t pending = each->packets.Pending(); pending > 0) {
                each->packets.HandOn(pending);
                each->wake(each->silentRun < pending);
            }
        }
    }
}

void Lockstep::NoteArrival(Member& member, std::size_t packets) {
    member.missed = 0;
    member.silentRun =
        member.packets.TakeSoundMark() ? 0 : std::min(member.silentRun + packets, kSilenceEnds);
    for (Member* const each : members_) {
        if (each != &member && IsSounding(*each) && (each->missed += packets) > kPatience) {
            each->silentRun = kSilenceEnds;
        }
    }
}

// How many packets every sounding stream hands on now.
std::size_t Lockstep::CommonStep() const {
    std::size_t fewest = kNothingSeen;
    std::size_t most = 0;
    for (const Member* const each : members_) {
        if (IsSounding(*each)) {
            fewest = std::min(fewest, each->packets.Pending());
            most = std::max(most, each->packets.Pending());
        }
    }
    return std::max(fewest, most - std::min(most, kLongestWait));
}

void Lockstep::StepTogether(Clock::time_point now) {
    const std::size_t step = CommonStep();
    if (step == 0 || now < nextStep_) {
        return; // what is ready goes with the next arrival
    }
    nextStep_ = now + kStepDistance;
    stepped_ += step;
    const bool windowEnds = stepped_ >= kWindow;
    if (windowEnds) {
        stepped_ = 0;
    }
    for (Member* const each : members_) {
        if (!IsSounding(*each)) {
            continue;
        }
        each->packets.HandOn(step);
        each->atRest = std::min(each->atRest, each->packets.Pending());
        if (windowEnds) {
            each->packets.HandOn(each->atRest);
            each->atRest = kNothingSeen;
        }
    }
    for (Member* const each : members_) {
        if (IsSounding(*each)) {
            each->wake(true);
        }
    }
}

} // namespace audio
