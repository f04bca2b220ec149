#include "station/terminal_text.h"

#include <utf8.h>

#include <nlohmann/json.hpp>

namespace station {
namespace {

TEST(TerminalTextTest, NothingThatMovesACursorOrTurnsALineAroundIsLeft) {
    for (char32_t character = 0; character <= 0x10FFFF; ++character) {
        if (character >= 0xD800 && character <= 0xDFFF) {
            continue;  // not in UTF-8
        }
        std::string text = "<";
        utf8::append(character, text);
        text += '>';
        const bool isControl = character < 0x20 || (character >= 0x7F && character <= 0x9F);
        const bool isMark =
            std::u32string(
                U"\u061C\u200E\u200F\u2028\u2029\u202A\u202B\u202C\u202D\u202E\u2066"
                U"\u2067\u2068\u2069")
                .find(character) != std::u32string::npos;
        ASSERT_EQ(printable(text), isControl || isMark ? "<?>" : text) << std::uint32_t{character};
    }
    for (int byte = 0x80; byte <= 0xFF; ++byte) {  // alone it isn't UTF-8
        const std::string text = std::string("<") + static_cast<char>(byte);
        ASSERT_EQ(printable(text + ">"), "<?>") << byte;
        ASSERT_EQ(printable(text), "<?") << byte;
    }
    EXPECT_EQ(printable("a\xE2\x82"), "a??") << "cut short";
    EXPECT_EQ(printableLines("a\n\x1B[2J\r"), "a\n?[2J?");
}

TEST(TerminalTextTest, JsonIsAsciiWhateverIsInIt) {
    const std::string text = toText({{"name", "\xC2\x9B\x1B\x7F\xFF\xC3\xA4"}});
    EXPECT_TRUE(std::all_of(text.begin(), text.end(),
                            [](char c) { return (c >= ' ' && c < 0x7F) || c == '\n'; }));
    EXPECT_EQ(nlohmann::json::parse(text)["name"], "\xC2\x9B\x1B\x7F\xEF\xBF\xBD\xC3\xA4");
}

}  // namespace
}  // namespace station
