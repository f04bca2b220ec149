#include <gmock/gmock.h>

#include "tests/bridge/bridge_bench.h"
#include "tests/bridge/counted_memory.h"

namespace {

using HotPathTest = BridgeTest;

TEST_F(HotPathTest, SampleAllocatesNoMoreThanTheCallsOfTheHost) {
    const std::uint8_t frame[72] = {};
    const auto channel = create();
    ScriptedChannel& behind = mounted(0);
    const auto allocationsOf = [&](auto action) {
        action();  // so that nothing has to grow any more
        host.script.forget();
        const std::uint64_t before = countedAllocations;
        action();
        return countedAllocations - before;
    };
    const std::uint64_t ofTheHost = allocationsOf([&] {
        void* data = nullptr;
        double* times = nullptr;
        std::int32_t number = 0;
        behind.getWritePosition(&number);
        behind.getElementSize(&number);
        behind.getDataBuffer(&data);
        behind.getTimeBuffer(&times);
        behind.advanceWritePosition(1);
    });
    ASSERT_GT(ofTheHost, 0U) << "the list of calls doesn't allocate, so nothing is measured";
    EXPECT_EQ(allocationsOf([&] { channel->addAsynchronousSample(frame, 72, 1.0); }), ofTheHost);
    EXPECT_EQ(behind.writePosition, 4);
}

}  // namespace
