#include <complex>

#include "bridge/output/channel_id_text.h"
#include "bridge/output/sample_value.h"

namespace {

using namespace Kestrova::Utils::Kcom;
using OutputChannel::sampleValue;
using ::testing::ElementsAre;

TEST(ChannelIdTextTest, IndicesComeBackFromTheirText) {
    EXPECT_EQ(ChannelIdText::format({7}), "7");
    EXPECT_EQ(ChannelIdText::format({1, 2, 3, 4}), "1:2;3;4");
    for (const std::vector<std::int32_t>& indices :
         {std::vector<std::int32_t>{-1}, {8, 0}, {2147483647, -2147483647 - 1, 0}}) {
        EXPECT_EQ(ChannelIdText::parse(ChannelIdText::format(indices)), indices);
    }
    EXPECT_THAT(ChannelIdText::parse("1;2;3"), ElementsAre(1, 2, 3));
    EXPECT_THAT(ChannelIdText::parse("1:;2;;-3;"), ElementsAre(1, 2, -3));
    EXPECT_THAT(ChannelIdText::parse(":1;2"), ElementsAre(1, 2));
    for (const char* text : {"", ":", ";", "a", "1:2:3", "1;2:3", "1:2;x", "1:2147483648", "1 2"}) {
        EXPECT_THAT(ChannelIdText::parse(text), testing::IsEmpty()) << text;
    }
}

template <typename T>
double valueOf(std::int32_t type, T value, std::uint64_t size = sizeof(T)) {
    std::array<std::uint8_t, sizeof(T) + 1> odd = {};  // not aligned
    std::memcpy(odd.data() + 1, &value, sizeof(T));
    return sampleValue(type, odd.data() + 1, size);
}

TEST(SampleValueTest, EachTypeIsReadInItsWidthAndSign) {
    EXPECT_THAT(
        (std::vector{valueOf<std::uint8_t>(0, 200), valueOf<std::int8_t>(1, -56),
                     valueOf<std::int16_t>(2, -2), valueOf<std::uint16_t>(3, 65534),
                     valueOf<std::int32_t>(4, -3), valueOf<float>(5, 0.5F),
                     valueOf<std::int64_t>(6, -4000000000), valueOf<double>(7, 0.1),
                     valueOf<std::uint32_t>(8, 4000000000), valueOf<double>(7, 1.0, 7)}),
        ElementsAre(200.0, -56.0, -2.0, 65534.0, -3.0, 0.5, -4e9, 0.1, 4e9, 0.0 /* too short */));
    for (const std::int32_t record : {-1, 11, 12, 14, 100}) {
        EXPECT_EQ(valueOf<double>(record, 1.0), 0.0) << record;
    }
    using Complex = std::complex<float>;
    EXPECT_EQ(valueOf<Complex>(9, {3.0F, -4.0F}), 5.0);
    EXPECT_EQ(valueOf<Complex>(9, {1.0F, 1.0F}), double{std::sqrt(2.0F)}) << "not in its precision";
    EXPECT_DOUBLE_EQ(valueOf<std::complex<double>>(10, {3e200, 4e200}), 5e200);
    EXPECT_EQ(valueOf<std::complex<double>>(10, {NAN, -INFINITY}), INFINITY);
}

}  // namespace
