#include "core/string_helper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace {

using Kestrova::Utils::Kcom::StringHelper;
using namespace std::string_literals;

TEST(StringHelper, TextSurvivesTheWayToWideAndBack) {
    const std::string text = "K\xC3\xBChler \xE2\x82\xAC \xF0\x9F\x9A\x97";
    EXPECT_EQ(StringHelper::ToWide(text), L"K\u00FChler \u20AC \U0001F697");
    EXPECT_EQ(StringHelper::ToUtf8(StringHelper::ToWide(text)), text);
}

TEST(StringHelper, InvalidUtf8GivesAnEmptyText) {
    for (const auto* text : {"cut \xE2\x82", "\xC0\xAF", "a\xFFz", "\xED\xA0\x80"}) {
        EXPECT_EQ(StringHelper::ToWide(text), L"");
    }
}

TEST(StringHelper, WideValuesThatAreNoCodePointAreMarked) {
    const std::wstring wide = {L'a', static_cast<wchar_t>(0x110000), static_cast<wchar_t>(0xD800)};
    EXPECT_EQ(StringHelper::ToUtf8(wide), "a\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(StringHelper, ConversionEndsAtTheFirstNul) {
    EXPECT_EQ(StringHelper::ToWide("ab\0\xFF"s), L"ab");
    EXPECT_EQ(StringHelper::ToUtf8(L"ab\0c"s), "ab");
    EXPECT_EQ(StringHelper::ToUtf8(static_cast<const wchar_t*>(nullptr)), "");
}

TEST(StringHelper, IntegersAtTheirLimitsAreNotGrouped) {
    EXPECT_EQ(StringHelper::ToText(std::numeric_limits<std::int32_t>::min()), "-2147483648");
    EXPECT_EQ(StringHelper::ToText(std::numeric_limits<std::uint32_t>::max()), "4294967295");
    EXPECT_EQ(StringHelper::ToText(std::numeric_limits<std::int64_t>::min()),
              "-9223372036854775808");
    EXPECT_EQ(StringHelper::ToText(std::numeric_limits<std::uint64_t>::max()),
              "18446744073709551615");
}

TEST(StringHelper, LocaleHasNoSeparatorAndKeepsTheRest) {
    const auto locale = StringHelper::MakeLocale("C");
    const auto& punctuation = std::use_facet<std::numpunct<char>>(locale);
    EXPECT_EQ(punctuation.thousands_sep(), '\0');
    EXPECT_EQ(punctuation.grouping(), "");
    EXPECT_EQ(punctuation.decimal_point(), '.');
}

TEST(StringHelper, UnknownLocaleIsAClearError) {
    EXPECT_THAT([] { StringHelper::MakeLocale("no_SUCH.locale"); },
                ::testing::ThrowsMessage<std::runtime_error>("bad locale name"));
}

}  // namespace
