#include "station/view/live_filter.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "station/errors.h"

namespace {

using namespace station;

const std::vector<std::string> channels = {"Front Engine", "Rear", "BAD"};

/// The channels and identifiers of a few messages that pass.
std::string passing(std::string_view text, const LiveFilter::NameOf& nameOf = {}) {
    const LiveFilter filter = LiveFilter::parse(text, channels, nameOf);
    std::string found;
    for (std::size_t channel = 0; channel < channels.size(); ++channel) {
        for (const std::uint32_t id : {0x17U, 0x100U, 0x123U, 0x1FFU, 0xBADU}) {
            if (filter.passes({channel, id})) {
                found += fmt::format("{}:{:X} ", channel, id);
                EXPECT_TRUE(filter.passesChannel(channel)) << text;
            }
        }
    }
    return found;
}

TEST(LiveFilterTest, NumbersRangesMasksAndNamesChooseAndExclude) {
    const std::string all =
        "0:17 0:100 0:123 0:1FF 0:BAD 1:17 1:100 1:123 1:1FF 1:BAD 2:17 2:100 2:123 2:1FF 2:BAD ";
    EXPECT_EQ(passing("  "), all);
    EXPECT_EQ(passing("100"), "0:100 1:100 2:100 ");
    EXPECT_EQ(passing("0x17, 1ff rear"), "1:17 1:1FF ");
    EXPECT_EQ(passing("100-123 Engine"), "0:100 0:123 ");
    EXPECT_EQ(passing("103:7DF rear"), "1:123 ") << "in the bits of the mask";
    EXPECT_EQ(passing("1FF:700 rear"), "1:100 1:123 1:1FF ");
    EXPECT_EQ(passing("bad rear"), "1:BAD ") << "a number, if it can be one";
    EXPECT_EQ(passing("\"bad\" 17"), "2:17 ");
    EXPECT_EQ(passing("\"front engine\" !100-1FF"), "0:17 0:BAD ");
    EXPECT_EQ(passing("!rear !\"BAD\" !17 !BAD"), "0:100 0:123 0:1FF ");
    EXPECT_EQ(passing("rear !rear"), "");
    const auto nameOf = [](const LiveFilter::Identity& message) {
        return message.id == 0x123 && message.channel == 1 ? "WheelSpeed" : "";
    };
    EXPECT_EQ(passing("speed", nameOf), "1:123 ");
    EXPECT_EQ(passing("speed 17 rear", nameOf), "1:17 1:123 ") << "identifiers and messages add up";
    EXPECT_EQ(passing("speed"), "") << "no message has a name";
    EXPECT_FALSE(LiveFilter::parse("rear 100", channels).passesChannel(0));
    EXPECT_FALSE(LiveFilter::parse("!rear", channels).passesChannel(1));
    EXPECT_TRUE(LiveFilter::parse("100", channels).passesChannel(2));
    EXPECT_TRUE(LiveFilter::parse("!0-7FF", channels).passesChannel(2)) << "others may come";
}

TEST(LiveFilterTest, ATextThatIsNoneSaysWhatOneLooksLike) {
    for (const char* const text : {"1FF-100", "!", "\"", "\"front", "100-", "100:x", "\"\""}) {
        EXPECT_THROW(LiveFilter::parse(text, channels), UserError) << text;
    }
}

}  // namespace
