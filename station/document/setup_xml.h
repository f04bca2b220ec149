#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

#include "station/document/setup_document.h"

namespace station {

/// The form of a setup file: a setup document as XML that people can read and write.
///
///     <?xml version="1.0" encoding="UTF-8"?>
///     <Setup version="1">
///       <Module Id="7">
///         <value key="Name">Front left</value>
///         <element name="1st channel">text</element>
///       </Module>
///     </Setup>
///
/// - The root has, beside what is its own, the version of this form.
/// - An element of the document is an XML element of its name. Its text is the character data
///   without the blanks around it. An element whose name XML can't have, or reserves, or is one of
///   `value`, `attribute` and `element`, is `<element name="...">`.
/// - A keyed value is `<value key="...">` in its element.
/// - An attribute is an XML attribute. From the first one on that can't be (for its name, because
///   it is there already, or because the attribute has more than a text) each is
///   `<attribute name="...">`, which has the content of any element.
/// - A text that XML would change is put in double quotes (`toFileText`); so do names and keys.
///
/// Everything unknown is an element and stays. Comments and processing instructions don't, and a
/// document type is refused. What is written is the same byte for byte for the same document, and
/// reading it gives the same document.
///
/// The version goes up when a file can no longer be read by the programs before it.
inline constexpr unsigned setupXmlVersion = 1;

/// What no setup is larger than: a file that is was made by mistake, or to make a program busy.
inline constexpr std::size_t largestSetupFile = std::size_t{64} << 20;  // bytes
inline constexpr std::size_t mostSetupNodes = 1'000'000;                // elements and values
inline constexpr std::size_t longestSetupText = std::size_t{1} << 20;   // bytes of a name or value

/// Why a text is no setup file, where, and what to do.
class SetupXmlError : public std::runtime_error {
  public:
    SetupXmlError(std::size_t lineOfFault, std::size_t columnOfFault, const std::string& cause,
                  std::string adviceToUser)
        : std::runtime_error(cause),
          line(lineOfFault),
          column(columnOfFault),
          advice(std::move(adviceToUser)) {}

    /// Both from 1; a column is a character.
    std::size_t getLine() const { return line; }
    std::size_t getColumn() const { return column; }
    /// Empty where nothing but a repair helps.
    const std::string& getAdvice() const { return advice; }

  private:
    std::size_t line;
    std::size_t column;
    std::string advice;
};

std::string toSetupXml(const SetupElement& root);

/// The root of the document. Throws SetupXmlError.
CountedRef<SetupElement> fromSetupXml(const std::string& text);

}  // namespace station
