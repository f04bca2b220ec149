#include "core/string_helper.h"

#include <gtest/gtest.h>

namespace {

using Kestrova::Utils::Kcom::StringHelper;

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

}  // namespace
