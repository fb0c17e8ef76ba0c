#include "audio_queue.h"

#include <algorithm>
#include <cstring>
#include <utility>

AudioQueue::Block AudioQueue::NewBlock() {
    return spare_ ? std::move(spare_) : std::make_unique_for_overwrite<std::uint8_t[]>(kBlockBytes);
}

bool AudioQueue::Append(const std::uint8_t* data, std::size_t count) {
    while (count > 0) {
        const std::size_t end = front_ + size_;
        if (end == blocks_.size() * kBlockBytes) {
            blocks_.push_back(NewBlock());
        }
        const std::size_t offset = end % kBlockBytes;
        const std::size_t part = std::min(count, kBlockBytes - offset);
        std::memcpy(blocks_.back().get() + offset, data, part);
        data += part;
        count -= part;
        size_ += part;
    }
    const bool wasDropping = std::exchange(dropping_, size_ > maxBytes_);
    if (dropping_) {
        DropFront(size_ - maxBytes_);
    }
    return dropping_ && !wasDropping;
}

void AudioQueue::Take(std::vector<std::uint8_t>& slice, std::size_t maxBytes) {
    slice.clear();
    std::size_t left = std::min(size_, maxBytes);
    while (left > 0) {
        const std::size_t part = std::min(left, kBlockBytes - front_);
        const std::uint8_t* first = blocks_.front().get() + front_;
        slice.insert(slice.end(), first, first + part);
        left -= part;
        DropFront(part);
    }
}

void AudioQueue::DropFront(std::size_t count) {
    size_ -= count;
    front_ += count;
    while (front_ >= kBlockBytes) {
        spare_ = std::move(blocks_.front());
        blocks_.pop_front();
        front_ -= kBlockBytes;
    }
}
