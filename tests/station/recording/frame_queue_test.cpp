#include "station/recording/frame_queue.h"

#include <random>
#include <thread>

namespace station {
namespace {

using Frame = std::vector<std::uint8_t>;

Frame makeFrame(std::uint32_t number, std::size_t size) {
    Frame frame(size, static_cast<std::uint8_t>(number));
    std::memcpy(frame.data(), &number, sizeof number);
    return frame;
}

void put(FrameQueue& queue, std::uint32_t number, std::size_t size) {
    const Frame frame = makeFrame(number, size);
    queue.onFrame(number % 3, number * std::int64_t{1000}, frame.data(),
                  static_cast<std::uint32_t>(size));
}

std::vector<std::uint32_t> takeNumbers(FrameQueue& queue) {
    std::vector<std::uint32_t> numbers;
    queue.takeNew([&](std::uint32_t source, std::int64_t receivedAt, const std::uint8_t* data,
                      std::uint32_t length) {
        std::uint32_t number = 0;
        std::memcpy(&number, data, sizeof number);
        EXPECT_EQ(source, number % 3);
        EXPECT_EQ(receivedAt, number * std::int64_t{1000});
        EXPECT_EQ(Frame(data, data + length), makeFrame(number, length));
        numbers.push_back(number);
    });
    return numbers;
}

TEST(FrameQueueTest, EachFrameComesOutOnceAndInOrderWhileOthersComeIn) {
    constexpr std::uint32_t frames = 20'000;
    FrameQueue queue(std::size_t{1} << 30U);
    std::thread capture([&queue] {
        std::mt19937 random{5};
        for (std::uint32_t number = 0; number < frames; ++number) {
            put(queue, number, 14 + random() % 1500 + (number % 100 == 0 ? 60'000 : 0));
        }
    });
    for (std::uint32_t expected = 0; expected < frames;) {
        for (const std::uint32_t number : takeNumbers(queue)) {
            ASSERT_EQ(number, expected++);
        }
    }
    capture.join();
    EXPECT_EQ(queue.getLost(), 0U);
}

TEST(FrameQueueTest, WhatFindsNoRoomIsCountedAndRoomComesBack) {
    constexpr std::size_t size = 60'000;
    constexpr std::uint32_t inAChunk = FrameQueue::chunkBytes / (size + 16);
    FrameQueue queue(3 * FrameQueue::chunkBytes);
    for (std::uint32_t round = 0; round < 20; ++round) {
        const std::uint64_t lostBefore = queue.getLost();
        std::size_t given = 0;
        for (; queue.getLost() == lostBefore; ++given) {
            put(queue, static_cast<std::uint32_t>(given), size);
        }
        // The chunk that was read last may have room left only.
        EXPECT_GE(given, 2 * inAChunk);
        EXPECT_LE(given, 3 * inAChunk + 1);
        EXPECT_EQ(takeNumbers(queue).size(), given - 1);
    }
    put(queue, 1, FrameQueue::chunkBytes);
    EXPECT_EQ(queue.getLost(), 21U);
    EXPECT_TRUE(takeNumbers(queue).empty());
}

}  // namespace
}  // namespace station
