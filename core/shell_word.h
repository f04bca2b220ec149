#pragma once

#include <string>

/// As one word of a shell, whatever is in it.
inline std::string quotedForShell(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + '\'';
}
