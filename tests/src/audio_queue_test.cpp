#include "audio_queue.h"

#include <gtest/gtest.h>

#include <random>

namespace {

std::vector<std::uint8_t> Bytes(std::size_t count, std::uint32_t& next) {
    std::vector<std::uint8_t> bytes(count);
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(next++ * 2654435761u >> 24);
    }
    return bytes;
}

// Blocks begin and end at other places than the pieces that go in and come out.
TEST(AudioQueue, KeepsEveryByteInItsOrder) {
    std::mt19937 random(1);
    AudioQueue queue(100'000'000);
    std::uint32_t written = 0;
    std::uint32_t read = 0;
    std::vector<std::uint8_t> slice;
    for (int step = 0; step < 3000; ++step) {
        const bool filling = step % 600 < 400;
        for (unsigned i = 0; i < random() % (filling ? 4 : 2); ++i) {
            const auto bytes = Bytes(random() % 40000, written);
            EXPECT_FALSE(queue.Append(bytes.data(), bytes.size()));
        }
        const std::size_t waiting = written - read;
        queue.Take(slice, 32768);
        ASSERT_EQ(slice.size(), std::min<std::size_t>(waiting, 32768));
        ASSERT_EQ(slice, Bytes(slice.size(), read));
        ASSERT_EQ(queue.Size(), written - read);
    }
}

TEST(AudioQueue, DropsTheOldestAndSaysWhenItBegins) {
    AudioQueue queue(100'000);
    std::uint32_t written = 0;
    const auto append = [&](std::size_t count) {
        const auto bytes = Bytes(count, written);
        return queue.Append(bytes.data(), bytes.size());
    };
    EXPECT_FALSE(append(100'000));
    EXPECT_TRUE(append(2));
    EXPECT_FALSE(append(70'000)) << "still dropping";
    EXPECT_EQ(queue.Size(), 100'000u);

    std::vector<std::uint8_t> slice;
    queue.Take(slice, 60'000);
    std::uint32_t expected = 70'002;
    EXPECT_EQ(slice, Bytes(60'000, expected));
    EXPECT_FALSE(append(60'000)) << "there was room again";
    EXPECT_TRUE(append(2));
    EXPECT_TRUE(append(0) || queue.Size() == 100'000u);
}

} // namespace
