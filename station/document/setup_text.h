#pragma once

#include <optional>
#include <string>

namespace station {

/// The text as it is in a setup file, UTF-8: itself, as long as it comes back the same from
/// every reader of XML. Any other is put in double quotes: one with a blank at an end, with a
/// character that XML doesn't hold or changes, or with a double quote at its start. In the quotes
/// `\\` and `\"` are these characters, `\n` and `\t` line feed and tab, and `\u{1f}` the character
/// of that number in hexadecimal.
std::string toFileText(const std::wstring& text);

/// The text again, without the blanks around it. Nothing if it isn't UTF-8, or begins with a double
/// quote but isn't as above to its end.
std::optional<std::wstring> fromFileText(const std::string& text);

/// Whether the text can be the name of an XML element or attribute: ASCII letters, digits, "_", "."
/// and "-", no digit, "." or "-" first, and not one that begins with "xml".
bool isXmlName(const std::wstring& text);

}  // namespace station
