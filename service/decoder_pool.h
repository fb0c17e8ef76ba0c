// The speech decoders of the service: each takes about 100 MB and a third of a second to load, so
// they are kept and handed from one session to the next. Knows nothing of utterances.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

struct ps_decoder_s;

namespace service {

// One loaded decoder with a language model of its own: a shared one races.
class Decoder {
public:
    Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder();

    ps_decoder_s* Get() const { return decoder_; }

    // Takes what has been heard into account for what comes. The library does so at the end of an
    // utterance only, which costs words at the start of a session and in long utterances.
    void AdaptToSpeaker();

    // Forgets the last speaker and room, so that the next session starts as on a new decoder.
    void Forget();

private:
    ps_decoder_s* decoder_ = nullptr;
    std::vector<float> freshMean_; // of the cepstrum, as the model brings it
    std::vector<float> freshSum_;
    int freshFrames_ = 0;
};

class DecoderPool;

class ReturnToPool {
public:
    ReturnToPool() = default;
    explicit ReturnToPool(DecoderPool& pool) : pool_(&pool) {}
    void operator()(Decoder* decoder) const;

private:
    DecoderPool* pool_ = nullptr;
};

// The use of one decoder; the pool outlives it.
using DecoderLease = std::unique_ptr<Decoder, ReturnToPool>;

// Any thread may acquire and return. Decoders are loaded when first needed, or beforehand.
class DecoderPool {
public:
    explicit DecoderPool(std::size_t capacity) : capacity_(capacity) {}

    // Null when all are in use, and stay so for as long as may be waited. Throws when a decoder
    // cannot be loaded.
    DecoderLease Acquire(std::chrono::milliseconds wait = std::chrono::milliseconds(0));

    // Loads one that is still missing; false when there are as many as there may be. One alone at a
    // time, so that a start never waits for more than one. Throws when it cannot be loaded.
    bool LoadOne();

    // Of fewer than are in use, those who have one keep it.
    void SetCapacity(std::size_t capacity);

private:
    friend class ReturnToPool;
    DecoderLease TakeIdle(); // null: there is none
    void Return(Decoder* decoder);

    std::mutex mutex_; // guards what follows; never held while a decoder loads
    std::size_t capacity_;
    std::vector<std::unique_ptr<Decoder>> idle_;
    std::size_t inUse_ = 0;
    std::condition_variable returned_;
    std::mutex loading_; // held while one decoder loads: the library's loader has global state
};

} // namespace service
