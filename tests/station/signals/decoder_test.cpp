#include "station/signals/decoder.h"

#include "tests/station/signals/written_database.h"

namespace station {
namespace {

using testing::ElementsAre;

std::vector<std::string> decoded(const Decoder& decoder, std::uint32_t id, bool isExtended,
                                 const std::vector<std::uint8_t>& data) {
    const Decoder::Message* const message = decoder.find(id, isExtended);
    if (message == nullptr) {
        return {"none"};
    }
    std::vector<std::string> lines;
    message->decode(data, [&](const DecodedSignal& signal) {
        std::ostringstream text;
        text << signal.definition->name << ' ' << signal.raw << ' ' << signal.value << *signal.unit
             << (signal.text == nullptr ? "" : ' ' + *signal.text);
        lines.push_back(text.str());
    });
    return lines;
}

TEST(DecoderTest, SignalsOfEachKindAndOrder) {
    const Decoder decoder(std::make_shared<const Database>(WrittenDatabase().read(bodyDbc)));
    EXPECT_THAT(decoded(decoder, 291, false, {0x10, 0x27, 0xFF, 0x10, 0, 0, 0xC0, 0xBF}),
                ElementsAre("Speed 10000 24901/min", "Torque -15 -15Nm", "Gear 1 1 Re\"verse",
                            "Heat 3217031168 -2\u00B0C"));
    EXPECT_THAT(decoded(decoder, 291, false, {0x10, 0x27, 0xFF}),
                ElementsAre("Speed 10000 24901/min"));
    std::vector<std::uint8_t> wide(64, 0xFF);
    EXPECT_THAT(decoded(decoder, 419365121, true, wide),
                ElementsAre("Far -1 -1 none", "Big -1 1.84467e+19"));
    wide[0] = 0x80;
    wide.resize(70);
    EXPECT_EQ(decoded(decoder, 419365121, true, wide).back(),
              "Big -9151314442816847873 9.29543e+18");
    EXPECT_THAT(decoded(decoder, 291, true, wide), ElementsAre("none"));
    EXPECT_THAT(decoded(decoder, 0xFFFFFFFF, false, wide), ElementsAre("none"));
}

TEST(DecoderTest, OnlyWhatTheSwitchesChoose) {
    const Decoder decoder(std::make_shared<const Database>(WrittenDatabase().read(bodyDbc)));
    const auto of = [&](std::vector<std::uint8_t> data) {
        return decoded(decoder, 512, false, data);
    };
    EXPECT_THAT(of({0, 3, 9}), ElementsAre("Mode 0 0", "A 3 3"));
    EXPECT_THAT(of({1, 3, 9}), ElementsAre("Mode 1 1", "PageOfThisMode 3 3", "B 9 9"));
    EXPECT_THAT(of({1, 8, 9}), ElementsAre("Mode 1 1", "PageOfThisMode 8 8", "B 9 9"));
    EXPECT_THAT(of({1, 4, 9}), ElementsAre("Mode 1 1", "PageOfThisMode 4 4"));
    EXPECT_THAT(of({1}), ElementsAre("Mode 1 1"));
    EXPECT_THAT(of({2, 3, 9}), ElementsAre("Mode 2 2"));
    EXPECT_THAT(of({}), ElementsAre());
    DecodedSignal two[2];
    EXPECT_EQ(decoder.find(512, false)->decodeInto(two, std::vector<std::uint8_t>{1, 3, 9}), 2U);
    EXPECT_EQ(two[1].index, 2U);
}

TEST(DecoderTest, RangesOfASwitchMayOverlapInAnyOrder) {
    auto database = std::make_shared<Database>();
    MessageDefinition& message = database->messages.emplace_back();
    message.length = 2;
    for (const char* const name : {"Switch", "Signal"}) {
        SignalDefinition& signal = message.signals.emplace_back();
        signal.name = name;
        signal.size = 8;
    }
    message.signals[0].multiplexing.isSwitch = true;
    message.signals[1].startBit = 8;
    message.signals[1].multiplexing.switchIndex = 0;
    message.signals[1].multiplexing.ranges = {{30, 30}, {10, 20}, {5, 12}, {7, 8}, {40, 35}};
    const Decoder decoder(database);
    for (unsigned value = 0; value < 256; ++value) {
        const bool isThere = (value >= 5 && value <= 20) || value == 30;
        EXPECT_EQ(decoded(decoder, 0, false, {static_cast<std::uint8_t>(value), 1}).size(),
                  isThere ? 2U : 1U)
            << value;
    }
}

TEST(DecoderTest, LinValuesByTheirRange) {
    const Decoder decoder(
        std::make_shared<const Database>(WrittenDatabase().read(doorLdf, "test.ldf")));
    const auto of = [&](std::uint8_t low, std::uint8_t high) {
        return decoded(decoder, 0x21, false, {low, high, 1, 2, 3, 4});
    };
    EXPECT_THAT(of(100, 4),
                ElementsAre("Position 100 5%", "Locked 1 1", "Serial 67305985 6.7306e+07"));
    EXPECT_EQ(of(0xF0, 3).front(), "Position 1008 1008raw");
    EXPECT_EQ(of(0xFF, 3).front(), "Position 1023 97.3% invalid");
}

}  // namespace
}  // namespace station
