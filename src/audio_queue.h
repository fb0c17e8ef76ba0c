// Audio on its way out: bytes go in at the end and leave from the front, at a cost that does not
// depend on how much is waiting. Knows nothing of threads; its owner guards it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

class AudioQueue {
public:
    // Holds at most `maxBytes` (an even number, so that what is dropped is whole samples).
    explicit AudioQueue(std::size_t maxBytes) : maxBytes_(maxBytes) {}

    std::size_t Size() const { return size_; }

    // Copies `count` bytes to the end. What is then too much goes from the front. True when this
    // call began to drop, that is, when it dropped and the call before it did not.
    bool Append(const std::uint8_t* data, std::size_t count);

    // Moves the oldest bytes, at most `maxBytes`, into `slice`, which is emptied first and keeps
    // its capacity.
    void Take(std::vector<std::uint8_t>& slice, std::size_t maxBytes);

private:
    static constexpr std::size_t kBlockBytes = 65536;
    using Block = std::unique_ptr<std::uint8_t[]>;

    Block NewBlock();
    void DropFront(std::size_t count);

    const std::size_t maxBytes_;
    std::deque<Block> blocks_; // full but for the ends
    Block spare_;              // the block emptied last, so that a steady flow allocates nothing
    std::size_t front_ = 0;    // offset of the oldest byte in the first block
    std::size_t size_ = 0;     // bytes waiting
    bool dropping_ = false;    // the last Append dropped
};
