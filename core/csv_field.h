#pragma once

#include <string>

/// A field of a table of text, in quotation marks where it has to be (RFC 4180).
inline std::string quotedForCsv(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + '"';
}
