#include "decoder_pool.h"

#include <pocketsphinx.h>
#include <sphinxbase/err.h>
#include <sphinxbase/feat.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace service {
namespace {

static_assert(std::is_same_v<mfcc_t, float>, "the library was built for fixed-point features");

struct FreeSettings {
    void operator()(cmd_ln_t* settings) const { cmd_ln_free_r(settings); }
};
using Settings = std::unique_ptr<cmd_ln_t, FreeSettings>;

Settings MakeSettings() {
    const std::string models = std::string(KELVARIN_MODEL_DIRECTORY) + "/en-us/";
    // The two further passes at the end of an utterance cost up to 0.4 s there and, on recorded
    // speech, more words than they save; 3000 active states are as good as no limit and bound the
    // work in noise. 30 frames of silence (0.3 s) end an utterance.
    return Settings(cmd_ln_init(nullptr, ps_args(), 1,                            //
                                "-hmm", (models + "en-us").c_str(),               //
                                "-lm", (models + "en-us.lm.bin").c_str(),         //
                                "-dict", (models + "cmudict-en-us.dict").c_str(), //
                                "-fwdflat", "no",                                 //
                                "-bestpath", "no",                                //
                                "-maxhmmpf", "3000",                              //
                                "-vad_postspeech", "30",                          //
                                nullptr));
}

} // namespace

Decoder::Decoder() {
    err_set_logfp(nullptr); // the library is talkative, and what it says is for its developers
    const Settings settings = MakeSettings();
    if (settings) {
        decoder_ = ps_init(settings.get());
    }
    if (decoder_ == nullptr) {
        throw std::runtime_error("the speech model in " KELVARIN_MODEL_DIRECTORY
                                 " cannot be loaded");
    }

    const cmn_t& mean = *ps_get_feat(decoder_)->cmn_struct;
    freshMean_.assign(mean.cmn_mean, mean.cmn_mean + mean.veclen);
    freshSum_.assign(mean.sum, mean.sum + mean.veclen);
    freshFrames_ = mean.nframe;
}

Decoder::~Decoder() {
    ps_free(decoder_);
}

void Decoder::AdaptToSpeaker() {
    cmn_live_update(ps_get_feat(decoder_)->cmn_struct);
}

void Decoder::Forget() {
    cmn_t& mean = *ps_get_feat(decoder_)->cmn_struct;
    std::ranges::copy(freshMean_, mean.cmn_mean);
    std::ranges::copy(freshSum_, mean.sum);
    mean.nframe = freshFrames_;
    ps_start_stream(decoder_); // the estimate of the background noise
}

void ReturnToPool::operator()(Decoder* decoder) const {
    pool_->Return(decoder);
}

DecoderLease DecoderPool::Acquire(std::chrono::milliseconds wait) {
    {
        std::unique_lock lock(mutex_);
        if (!returned_.wait_for(lock, wait, [this] { return inUse_ < capacity_; })) {
            return {};
        }
        ++inUse_;
    }
    try {
        if (DecoderLease idle = TakeIdle()) {
            return idle;
        }
        const std::lock_guard loading(loading_);
        if (DecoderLease loaded = TakeIdle()) { // while this one waited
            return loaded;
        }
        return {std::make_unique<Decoder>().release(), ReturnToPool(*this)};
    } catch (...) {
        const std::lock_guard lock(mutex_);
        --inUse_;
        throw;
    }
}

DecoderLease DecoderPool::TakeIdle() {
    const std::lock_guard lock(mutex_);
    if (idle_.empty()) {
        return {};
    }
    DecoderLease lease(idle_.back().release(), ReturnToPool(*this));
    idle_.pop_back();
    return lease;
}

bool DecoderPool::LoadOne() {
    const std::lock_guard loading(loading_);
    {
        const std::lock_guard lock(mutex_);
        if (inUse_ + idle_.size() >= capacity_) {
            return false;
        }
    }
    auto decoder = std::make_unique<Decoder>();
    const std::lock_guard lock(mutex_);
    idle_.push_back(std::move(decoder));
    return true;
}

void DecoderPool::SetCapacity(std::size_t capacity) {
    std::vector<std::unique_ptr<Decoder>> spare; // destroyed after the lock is released
    const std::lock_guard lock(mutex_);
    capacity_ = capacity;
    while (!idle_.empty() && inUse_ + idle_.size() > capacity_) {
        spare.push_back(std::move(idle_.back()));
        idle_.pop_back();
    }
}

void DecoderPool::Return(Decoder* decoder) {
    std::unique_ptr<Decoder> returned(decoder); // destroyed after the lock is released
    const std::lock_guard lock(mutex_);
    --inUse_;
    if (inUse_ + idle_.size() < capacity_) {
        idle_.push_back(std::move(returned));
    }
    returned_.notify_one();
}

} // namespace service
