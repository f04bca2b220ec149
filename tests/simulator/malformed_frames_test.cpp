#include "simulator/malformed_frames.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/simulator/strict_reader.h"

namespace sim {
namespace {

const std::array<Sender, 3> senders = {
    {{.cmId = 0x45}, {.bus = Bus::Lin, .cmId = 0x32}, {.framing = Framing::AsamCmp, .cmId = 7}}};

TEST(MalformedFrames, NoDamageLeavesAMessageForAStrictReceiver) {
    constexpr int rounds = 400;
    MalformedFrames malformed(3);
    std::array<std::uint8_t, MalformedFrames::room> buffer{};
    for (const Sender& sender : senders) {
        const bool lin = sender.bus == Bus::Lin;
        for (const Damage damage : allDamages) {
            for (int round = 0; round < rounds; ++round) {
                buffer.fill(0);
                const std::size_t length = malformed.encode(buffer, sender, 0x10, 5, damage);
                ASSERT_GE(length, 14U);
                ASSERT_TRUE(readStrictly({buffer.data(), length}, lin).empty());
                // A network card that fills the frame up doesn't mend it.
                const std::size_t onTheWire = std::max(length, leastFrame);
                ASSERT_TRUE(readStrictly({buffer.data(), onTheWire}, lin).empty());
                if (damage != Damage::VlanTagged)
                    continue;
                // Who doesn't look at the tag reads a number that nobody sends.
                const auto careless = readStrictly({buffer.data() + 4, length - 4}, lin);
                ASSERT_EQ(careless.size(), 1U);
                ASSERT_EQ(careless[0].number, 0xFFFFFFFFU);
            }
        }
    }
}

}  // namespace
}  // namespace sim
