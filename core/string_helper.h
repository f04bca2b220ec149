#pragma once

#include <cstdint>
#include <locale>
#include <string>
#include <string_view>

namespace Kestrova::Utils::Kcom {

/// Number punctuation of a named locale, but without a thousands separator: decimal point and the
/// texts for true and false are the locale's own.
class NoThousandsSeparatorFacet : public std::numpunct_byname<char> {
  public:
    /// Throws `std::runtime_error` for a name that the system doesn't know.
    explicit NoThousandsSeparatorFacet(const std::string& localeName)
        : std::numpunct_byname<char>(localeName) {}

  protected:
    char do_thousands_sep() const override { return '\0'; }
    std::string do_grouping() const override { return {}; }
};

/// Text conversions at the host's boundary. Text is UTF-8 inside the system and wide towards the
/// host; a wide character is one code point here. Stateless, callable from any thread.
class StringHelper {
  public:
    /// Converts up to the first NUL. Invalid UTF-8 anywhere before it gives an empty text: half a
    /// name would be taken for the whole of it.
    static std::wstring ToWide(std::string_view utf8);

    /// Converts up to the first NUL. What is no code point becomes U+FFFD, the replacement mark.
    static std::string ToUtf8(const std::wstring& wide);
    /// As above; a null pointer gives an empty text.
    static std::string ToUtf8(const wchar_t* wide);

    /// Decimal digits, a leading "-" for negatives, whatever the locale.
    static std::string ToText(std::int32_t value);
    static std::string ToText(std::uint32_t value);
    static std::string ToText(std::int64_t value);
    static std::string ToText(std::uint64_t value);

    /// The named locale with `NoThousandsSeparatorFacet` in place of its number punctuation: a
    /// stream imbued with it never groups digits. Throws `std::runtime_error` "bad locale name"
    /// for a name that the system doesn't know.
    static std::locale MakeLocale(const std::string& localeName);
};

}  // namespace Kestrova::Utils::Kcom
