#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace station {

class UserError;

/// The text as a terminal may show it: serial numbers come from the network and names from files,
/// and characters in them could move its cursor, change its settings or turn a line around. Control
/// characters, line breaks, marks of writing direction and what isn't UTF-8 become '?'.
std::string printable(std::string_view text);
/// The same for a text of several lines.
std::string printableLines(std::string_view text);

/// JSON in ASCII, indented, with a line feed at its end. What isn't UTF-8 is replaced.
std::string toText(const nlohmann::ordered_json& json);

/// Writes the whole text and waits for its reader, also where another program has set the
/// descriptor not to wait. Returns 0, or `errno` of what keeps it from being written.
int writeAll(int descriptor, std::string_view text);

/// Prints a message for the user on standard error as one line, "cmp-station: " in front: a name in
/// it can't look like the next message. That it can't be printed is no failure.
void printMessage(std::string_view text);
/// The same for what ends a program. How to be allowed to capture takes several lines.
void printMessage(const UserError& error);
/// Each as one line.
void printMessages(const std::vector<std::string>& texts);

/// Prints what a command is to answer on standard output. Throws `UserError` if that can't be
/// written. A reader that has gone ends the program by SIGPIPE, as is usual.
void printResult(std::string_view text);

}  // namespace station
