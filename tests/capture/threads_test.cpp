#include "tests/support/capture_bench.h"

namespace {

/// Such an interface never times out, so the pass never ends.
TEST(ThreadsTest, FloodOfForeignFramesHoldsUpNeitherAChangeNorAStop) {
    CaptureBench bench;
    bench.port.interfaces[0].endless = [] { return ScriptedRead{1, wire::ethernet(0x0800)}; };
    bench.reader.startRead();
    for (int i = 0; i < 20; ++i) {
        bench.add(DeviceTypeInfo::linComboId, 1);
        bench.devices.remove(0);
    }
    bench.reader.Stop();
    EXPECT_EQ(bench.manager.liveClocks(), 0);
}

TEST(SequenceLockedTest, NothingIsReadHalfWritten) {
    SequenceLocked<std::array<std::int32_t, 19>> latest;
    std::atomic<bool> done = false;
    std::thread writer([&] {
        for (std::int32_t i = 0; i < 300000; ++i) {
            std::array<std::int32_t, 19> value;
            value.fill(i);
            latest.store(value);
        }
        done = true;
    });
    bool whole = true;
    while (!done) {
        const auto value = latest.load();
        whole = whole && std::count(value.begin(), value.end(), value[0]) == 19;
    }
    writer.join();
    EXPECT_TRUE(whole);
}

}  // namespace
