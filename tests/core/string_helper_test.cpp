#include "core/string_helper.h"

namespace {

using Kestrova::Utils::Kcom::StringHelper;

TEST(StringHelper, TextSurvivesTheWayToWideAndBackUpToItsFirstNulUnlessItIsNone) {
    const std::string text = "K\xC3\xBChler \xE2\x82\xAC \xF0\x9F\x9A\x97";
    EXPECT_EQ(StringHelper::ToWide(text), L"K\u00FChler \u20AC \U0001F697");
    EXPECT_EQ(StringHelper::ToUtf8(StringHelper::ToWide(text)), text);
    EXPECT_EQ(StringHelper::ToWide(std::string_view("ab\0c\xFF", 5)), L"ab");
    EXPECT_EQ(StringHelper::ToUtf8(std::wstring(L"ab\0c", 4)), "ab");
    EXPECT_EQ(StringHelper::ToUtf8(static_cast<const wchar_t*>(nullptr)), "");
    for (const auto* noUtf8 : {"cut \xE2\x82", "\xC0\xAF", "a\xFFz", "\xED\xA0\x80"}) {
        EXPECT_EQ(StringHelper::ToWide(noUtf8), L"");
    }
    const std::wstring noText = {L'a', static_cast<wchar_t>(0x110000),
                                 static_cast<wchar_t>(0xD800)};
    EXPECT_EQ(StringHelper::ToUtf8(noText), "a\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(StringHelper, NumbersAreNeverGrouped) {
    EXPECT_EQ(StringHelper::ToText(INT32_MIN) + StringHelper::ToText(UINT32_MAX) +
                  StringHelper::ToText(INT64_MIN) + StringHelper::ToText(UINT64_MAX),
              "-21474836484294967295-922337203685477580818446744073709551615");
    const std::locale locale = StringHelper::MakeLocale("C.UTF-8");
    const auto& numbers = std::use_facet<std::numpunct<char>>(locale);
    EXPECT_EQ(numbers.grouping(), "");
    EXPECT_EQ(numbers.thousands_sep(), '\0');
    EXPECT_THAT([] { StringHelper::MakeLocale("nowhere"); },
                testing::ThrowsMessage<std::runtime_error>("bad locale name"));
}

}  // namespace
