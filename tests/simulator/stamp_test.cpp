#include "simulator/options.h"
#include "simulator/simulation.h"

namespace sim {
namespace {

/// A clock that is later at every look, so that a time shows when it was taken, and a link without
/// room at every other call.
struct SlowLink : HostClock, FrameSink {
    std::int64_t elapsed() override { return now += 100; }
    void waitUntil(std::int64_t ns) override { now = ns + 3'000'000; }
    std::int64_t getLeastSleep() const override { return 0; }
    std::int64_t getStartUtc() const override { return 1'700'000'000'000'000'000; }
    std::int64_t getStartStamp() const override { return 7'000'000; }
    std::size_t getLongestFrame() const override { return 1514; }
    std::size_t send(std::span<const OutFrame> frames) override {
        std::int64_t device = 0, stamp = 0;
        for (std::size_t i = 0; i < 8; ++i) {
            device = device << 8 | frames[0].bytes[30 + i];
            stamp = stamp << 8 | frames[0].bytes[58 - i];
        }
        const bool isData = frames[0].kind == FrameKind::Data;
        hasRoom = !hasRoom;
        EXPECT_LE(getStartUtc() + now - device, isData ? 0 : hasRoom ? 4'000'000 : 1000);
        EXPECT_TRUE(!isData || stamp == getStartStamp() + now);
        return hasRoom ? frames.size() : 0;
    }
    std::int64_t now = 0;
    bool hasRoom = true;
};

TEST(Stamp, IsOfTheMomentAtWhichTheFrameIsSent) {
    const char* const words[] = {"cmp-sim",     "--interface", "v0",   "--module",
                                 "CAN combo:5", "--messages",  "90",   "--length",
                                 "12",          "--status",    "0.01", "--stamp"};
    const Options options = parseOptions(std::size(words), words).options;
    SlowLink link;
    Simulation(options.modules, options.traffic, link, link).run(false, [] {});
    EXPECT_GT(link.now, 90 * 3'000'000);
}

TEST(FrameEncoder, AsamCmpHasALengthCodeBeforeTheLength) {
    std::uint8_t frame[128] = {};
    const DataMessage message{.length = 48};
    encodeData(frame, {.framing = Framing::AsamCmp}, 0, {&message, 1});
    EXPECT_EQ(frame[52], 14);
}

}  // namespace
}  // namespace sim
