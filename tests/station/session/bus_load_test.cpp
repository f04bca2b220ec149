#include "station/session/bus_load.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "station/errors.h"
#include "station/recording/bus_record.h"

namespace {

using namespace station;

TEST(BusLoadTest, BitsOnTheWireAreThoseOfTheFrameFormats) {
    struct Case {
        bool isExtended;
        std::size_t length;
        double stuffed;  ///< bits among which stuff bits are, at the nominal rate
        double rest;     ///< bits without any
        double stuffedOfData;
        double restOfData;
    };
    const Case cases[] = {{false, 0, 34, 13, 0, 0},
                          {false, 8, 98, 13, 0, 0},
                          {true, 0, 54, 13, 0, 0},
                          {true, 8, 118, 13, 0, 0},
                          {false, 9, 17, 12, 101, 28},  // twelve bytes, checksum of 17 bits, 6
                                                        // fixed stuff bits
                          {false, 16, 17, 12, 133, 28},
                          {false, 20, 17, 12, 165, 33},
                          {true, 64, 36, 12, 517, 33},
                          {true, 1000, 36, 12, 517, 33}};
    for (const Case& each : cases) {
        const WireBits bits = WireBits::ofCan(each.isExtended, each.length);
        EXPECT_NEAR(bits.nominal, each.stuffed * 31 / 30 + each.rest, 1e-9) << each.length;
        EXPECT_NEAR(bits.data, each.stuffedOfData * 31 / 30 + each.restOfData, 1e-9) << each.length;
    }
    EXPECT_EQ(WireBits::ofLin(8).nominal, 124);
    EXPECT_EQ(WireBits::ofLin(1).nominal, 54);
}

TEST(BusLoadTest, AShareOfTheLastSecondOfTheBusiestAndOfAll) {
    std::array<std::uint8_t, CanRecord::size> record = {0x23, 1, 0, 0, 0, 0, 0, 8};
    const auto secondsOf = [](std::size_t length, const BitRates& rates) {
        const WireBits bits = WireBits::ofCan(false, length);
        return bits.nominal / rates.nominal + bits.data / (rates.data != 0 ? rates.data : 1);
    };
    const BitRates rates{500'000, 2'000'000};
    BusLoad load(BusType::Can, rates);
    for (int i = 0; i < 1000; ++i) {
        load.note(record.data(), record.size());
    }
    record[7] = 64;
    load.note(record.data(), record.size());
    load.note(record.data(), LinRecord::size);
    load.update(1.0);
    const double busy = 1000 * secondsOf(8, rates) + secondsOf(64, rates);
    EXPECT_NEAR(load.summarize(1.0)->lately, busy, 1e-9);
    record[3] = 0x01;  // an identifier of 29 bits, whatever the flag says
    load.note(record.data(), record.size());
    load.update(2.0);
    const WireBits last = WireBits::ofCan(true, 64);
    const double more = last.nominal / rates.nominal + last.data / rates.data;
    EXPECT_NEAR(load.summarize(4.0)->lately, more / 2, 1e-9);
    EXPECT_NEAR(load.summarize(4.0)->most, busy, 1e-9);
    EXPECT_NEAR(load.summarize(4.0)->mean, (busy + more) / 4, 1e-9);
    BusLoad lin(BusType::Lin, {19'200, 0});
    const std::array<std::uint8_t, LinRecord::size> two = {0x11, 2};
    lin.note(two.data(), two.size());
    lin.note(record.data(), record.size());
    EXPECT_NEAR(lin.summarize(1.0)->mean, 64.0 / 19'200, 1e-9);
    EXPECT_FALSE(BusLoad(BusType::Can, {}).summarize(1.0));
}

TEST(BusLoadTest, TheLoadOfAModuleIsTheMeanOfItsBusesAndWrongRatesAreRefused) {
    Summary summary;
    EXPECT_FALSE(summary.getLoad());
    for (const auto& [module, lately] : {std::pair(0U, 0.1), {0U, 0.3}, {1U, 0.8}, {1U, -1.0}}) {
        ChannelSummary& channel = summary.channels.emplace_back();
        channel.module = module;
        channel.frames = 1;
        channel.busName = "CAN FD";
        if (lately >= 0) {
            channel.load = BusLoadSummary{{500'000, 0}, lately, 0, 0};
        }
    }
    summary.modules.resize(3);
    EXPECT_NEAR(*summary.getLoad(0), 0.2, 1e-9);
    EXPECT_NEAR(*summary.getLoad(), 0.4, 1e-9);
    EXPECT_FALSE(summary.getLoad(2));
    using testing::AllOf;
    using testing::Contains;
    using testing::HasSubstr;
    EXPECT_THAT(toTable(summary), AllOf(Contains(HasSubstr(" frames  load 40.0 %")),
                                        Contains(testing::EndsWith("  load 20.0 %")),
                                        Contains(HasSubstr("/s  80.0 %"))));
    EXPECT_THAT(toJson(summary), HasSubstr("\"lately\": 0.8"));
    const Channel can{0x10, "CAN FD", -1, "Front"};
    const Channel lin{0x20, "LIN", -1, "Door"};
    checkBitRates({500'000, 2'000'000}, can);
    checkBitRates({19'200, 0}, lin);
    checkBitRates({}, lin);
    EXPECT_THROW(checkBitRates({19'200, 2'000'000}, lin), UserError);
    for (const BitRates& rates :
         {BitRates{999, 0}, {0, 500'000}, {20'000'001, 0}, {500'000, 250'000}}) {
        EXPECT_THROW(checkBitRates(rates, can), UserError);
    }
}

}  // namespace
