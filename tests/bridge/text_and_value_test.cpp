#include <gmock/gmock.h>

#include <array>
#include <cstring>

#include "bridge/output/channel_id_text.h"
#include "bridge/output/sample_value.h"

namespace {

using namespace Kestrova::Utils::Kcom;
using OutputChannel::sampleValue;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ChannelIdTextTest, IndicesComeBackFromTheirText) {
    EXPECT_EQ(ChannelIdText::format({7}), "7");
    EXPECT_EQ(ChannelIdText::format({1, 2, 3, 4}), "1:2;3;4");
    for (const std::vector<std::int32_t>& indices :
         {std::vector<std::int32_t>{-1}, {8, 0}, {2147483647, -2147483647 - 1, 0}}) {
        EXPECT_EQ(ChannelIdText::parse(ChannelIdText::format(indices)), indices);
    }
}

TEST(ChannelIdTextTest, OddTextGivesTheIndicesThatAreThereOrNone) {
    EXPECT_THAT(ChannelIdText::parse("1;2;3"), ElementsAre(1, 2, 3));
    EXPECT_THAT(ChannelIdText::parse("1:;2;;-3;"), ElementsAre(1, 2, -3));
    EXPECT_THAT(ChannelIdText::parse(":1;2"), ElementsAre(1, 2));
    for (const char* text : {"", ":", ";", "a", "1:2:3", "1;2:3", "1:2;x", "1:2147483648", "1 2"}) {
        EXPECT_THAT(ChannelIdText::parse(text), IsEmpty()) << text;
    }
}

template <typename T>
double valueOf(std::int32_t type, T value, std::uint64_t size = sizeof(T)) {
    std::array<std::uint8_t, sizeof(T) + 1> odd = {};  // not aligned
    std::memcpy(odd.data() + 1, &value, sizeof(T));
    return sampleValue(type, odd.data() + 1, size);
}

TEST(SampleValueTest, EachTypeIsReadInItsWidthAndSign) {
    EXPECT_EQ(valueOf<std::uint8_t>(0, 200), 200.0);
    EXPECT_EQ(valueOf<std::int8_t>(1, -56), -56.0);
    EXPECT_EQ(valueOf<std::int16_t>(2, -2), -2.0);
    EXPECT_EQ(valueOf<std::uint16_t>(3, 65534), 65534.0);
    EXPECT_EQ(valueOf<std::int32_t>(4, -3), -3.0);
    EXPECT_EQ(valueOf<float>(5, 0.5F), 0.5);
    EXPECT_EQ(valueOf<std::int64_t>(6, -4000000000), -4e9);
    EXPECT_EQ(valueOf<double>(7, 0.1), 0.1);
    EXPECT_EQ(valueOf<std::uint32_t>(8, 4000000000), 4e9);
    EXPECT_EQ(valueOf<double>(7, 1.0, 7), 0.0) << "too short";
    for (const std::int32_t record : {-1, 11, 12, 14, 100}) {
        EXPECT_EQ(valueOf<double>(record, 1.0), 0.0) << record;
    }
}

}  // namespace
