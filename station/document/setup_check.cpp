#include "station/document/setup_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>

#include "core/parse_number.h"
#include "core/string_helper.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

constexpr const wchar_t* configIdKey = L"ConfigId";
constexpr const wchar_t* typeKey = L"DeviceTypeId";

/// A key under which a setup has the number of a thing.
struct NumberKey {
    const wchar_t* key;
    const char* meaning;
    bool isOfAll;   ///< no two in the whole setup have the same, else no two beside each other
    bool isUnique;  ///< no two have the same at all
};
constexpr std::array<NumberKey, 5> numberKeys = {{{L"Id", "Id", false, true},
                                                  {L"ClockId", "ClockId", false, true},
                                                  {L"ChId", "ChId", true, true},
                                                  {configIdKey, "ConfigId", false, true},
                                                  {typeKey, "DeviceTypeId", false, false}}};

class Check {
  public:
    std::vector<std::string> faults;

    void look(const SetupElement& element) {
        Places places;
        for (const auto& child : element.getContent().children) {
            const auto& content = child->getContent();
            for (const auto& attribute : content.attributes) {
                if (attribute->getContent().name == L"Id") {
                    note(places[{content.name, L"@Id"}], "Id", true, attribute->getContent().text,
                         child->getLine());
                }
            }
            for (const auto& value : content.values) {
                noteValue(places, content, value);
            }
            look(*child);
        }
    }

  private:
    /// The line at which a number was first, by number.
    using Lines = std::map<std::uint32_t, std::size_t>;
    /// By name of the element and key.
    using Places = std::map<std::pair<std::wstring, std::wstring>, Lines>;

    void noteValue(Places& places, const SetupElement::Content& element,
                   const SetupElement::Value& value) {
        const auto* const known =
            std::find_if(numberKeys.begin(), numberKeys.end(),
                         [&](const NumberKey& number) { return value.key == number.key; });
        if (known == numberKeys.end()) {
            return;
        }
        std::wstring key = value.key;
        if (key == configIdKey) {  // modules of two types may have the same
            key += typeOf(element);
        }
        note((known->isOfAll ? placesOfAll : places)[{element.name, key}], known->meaning,
             known->isUnique, value.text, value.line);
    }

    static std::wstring typeOf(const SetupElement::Content& element) {
        const auto type = std::find_if(element.values.begin(), element.values.end(),
                                       [](const auto& value) { return value.key == typeKey; });
        return type != element.values.end() ? type->text : L"";
    }

    void note(Lines& lines, const char* meaning, bool isUnique, const std::wstring& text,
              std::size_t line) {
        const std::string plain = StringHelper::ToUtf8(text);
        const auto number = parseNumber<std::uint32_t>(plain);
        if (!number) {
            faults.push_back(
                fmt::format("line {}: the {} \"{}\" is no number from 0 on", line, meaning, plain));
        } else if (const auto [first, isNew] = lines.try_emplace(*number, line);
                   isUnique && !isNew) {
            faults.push_back(fmt::format("line {}: the {} {} is that of line {} too", line, meaning,
                                         *number, first->second));
        }
    }

    Places placesOfAll;
};

}  // namespace

std::vector<std::string> findSetupFaults(const SetupElement& section) {
    Check check;
    check.look(section);
    return std::move(check.faults);
}

}  // namespace station
