#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/parse_number.h"
#include "station/signals/database.h"

namespace station {

/// The text of a database file as its reader takes it: words, numbers and quoted texts one behind
/// the other, blanks, line breaks and comments (`//` and those of C) between them left out.
///
/// What isn't as the reader wants it throws UserError with file, line and cause.
class DefinitionText {
  public:
    /// Larger files are read up to here and then refused.
    static constexpr std::size_t mostBytes = std::size_t{64} << 20U;
    static constexpr std::size_t longestName = 1000;  ///< bytes, also of a unit

    /// Reads the file. Throws UserError (unreadable).
    explicit DefinitionText(std::string path);

    bool isAtEnd();
    /// The next character; 0 at the end.
    char peek();
    bool take(char wanted);
    /// `where` says what is being read: "a signal".
    void expect(char wanted, std::string_view where);
    /// Letters, digits, "_" and what isn't ASCII; empty if there is something else.
    std::string_view peekWord();
    bool takeWord(std::string_view wanted);
    /// `what` is missing otherwise.
    std::string_view word(std::string_view what);
    /// At most `longestName` long.
    std::string name(std::string_view what);
    /// Finite.
    double number(std::string_view what);
    /// Digits, or hexadecimal ones after 0x.
    std::uint64_t whole(std::string_view what, std::uint64_t most);
    /// A raw value, with a sign or as a number with a point; of more than 63 bits its bits.
    std::int64_t raw(std::string_view what);
    /// Between quotation marks; with `escapes` a `\"` is one of them and a `\\` is a `\`.
    std::string quoted(std::string_view what, bool escapes);
    std::string quotedName(std::string_view what, bool escapes);
    bool isQuoted() { return peek() == '"'; }

    /// Up to behind the next ";" that isn't quoted; with `keywords` not beyond a line that begins
    /// with a word for which it says so.
    void skipStatement(bool (*isKeyword)(std::string_view) = nullptr);
    /// Up to behind the "}" that belongs to a "{" which was taken.
    void skipBlock();
    /// Words as long as each stands alone on its line.
    void skipLonelyWords();
    void skipOne();

    std::size_t getLine() const { return line; }  ///< from 1; of what was taken last
    [[noreturn]] void fail(const std::string& cause) { failAt(line, cause); }
    [[noreturn]] void failAt(std::size_t where, const std::string& cause) const;
    /// Of what comes next.
    [[noreturn]] void failHere(const std::string& cause);
    /// Keeps a text about that line for the user.
    void notice(Database& database, std::size_t where, const std::string& what) const;
    const std::string& getPath() const { return path; }
    /// Of UTF-8 or else Windows-1252.
    static std::string toUtf8(std::string_view bytes);
    /// What stands there, as an error quotes it.
    std::string describeNext();

  private:
    std::string_view peekDigits(std::size_t& end);
    void skipBlanks();
    [[noreturn]] void failMissing(std::string_view what);

    const std::string path;
    std::string text;
    bool isCut = false;  ///< the file goes on behind `text`
    std::size_t at = 0;
    std::size_t line = 1;      ///< of `taken`
    std::size_t lineHere = 1;  ///< of `at`
};

/// Texts in the order of their values, each value once: the first counts.
void sortTexts(std::vector<ValueText>& texts);

/// Bounds what a file can make of itself by naming the same texts again and again.
class TextBudget {
  public:
    /// False: there were too many, or too long ones.
    bool take(const std::vector<ValueText>& texts, const std::vector<ScaledRange>& ranges = {});

  private:
    std::size_t left = 4 * DefinitionText::mostBytes;
};

}  // namespace station
