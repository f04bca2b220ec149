#include <utf8.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz/require.h"
#include "station/terminal_text.h"

// Names from the network and from files on their way to a terminal and into JSON.

namespace {

bool isControl(std::uint32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

void requireHarmless(const std::string& text, bool hasLines) {
    require(utf8::is_valid(text.begin(), text.end()), "what is shown isn't UTF-8");
    for (auto at = text.begin(); at != text.end();) {
        const std::uint32_t character = utf8::next(at, text.end());
        require(!isControl(character) || (hasLines && character == '\n'),
                "a control character is shown");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string line = station::printable(text);
    const std::string lines = station::printableLines(text);
    requireHarmless(line, false);
    requireHarmless(lines, true);
    require(station::printable(line) == line && station::printableLines(lines) == lines,
            "what is harmless is changed");
    const std::string json = station::toText({{text, text}});
    require(std::all_of(json.begin(), json.end(),
                        [](char byte) { return byte == '\n' || (byte >= 0x20 && byte < 0x7F); }),
            "JSON isn't ASCII");
    require(nlohmann::json::accept(json), "JSON can't be read");
    return 0;
}
