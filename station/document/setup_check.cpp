#include "station/document/setup_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>

#include "core/parse_number.h"
#include "core/string_helper.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

constexpr const wchar_t* configIdKey = L"ConfigId";
constexpr const wchar_t* typeKey = L"DeviceTypeId";
/// A module whose type the user hasn't chosen yet, which is also what becomes of any other number.
constexpr const wchar_t* noType = L"Unknown";
constexpr const wchar_t* noTypeId = L"65535";
/// Samples a second that the host may be asked to expect of a channel.
constexpr float highestRate = 1e6F;

/// A key under which a setup has the number of a thing, which no other may have.
struct NumberKey {
    const wchar_t* key;
    const char* meaning;
    bool isOfAll;  ///< in the whole setup, else among those beside each other
};
constexpr std::array<NumberKey, 4> numberKeys = {{{L"Id", "Id", false},
                                                  {L"ClockId", "ClockId", false},
                                                  {L"ChId", "ChId", true},
                                                  {configIdKey, "ConfigId", false}}};

/// What a value must be for a setup to be loaded with it: of the first two it is enough that the
/// text begins with a number. All other values are taken for something.
enum class Need { SyncMode, Counter, Number, Flag, Rate };
struct Needed {
    const wchar_t* element;
    const wchar_t* key;
    Need need;
};
constexpr std::array<Needed, 7> neededKeys = {{{L"GNSSClock", L"SyncMode", Need::SyncMode},
                                               {L"OutputList", L"ColorCounter", Need::Counter},
                                               {L"OutputChannel", L"Color", Need::Number},
                                               {L"OutputChannel", L"Used", Need::Flag},
                                               {L"OutputChannel", L"ExpectedRate", Need::Rate},
                                               {L"OutputChannel", L"BitRate", Need::Number},
                                               {L"OutputChannel", L"DataBitRate", Need::Number}}};

/// Null if there is none.
const SetupElement::Value* valueOf(const SetupElement::Content& element, const wchar_t* key) {
    const auto value = std::find_if(element.values.begin(), element.values.end(),
                                    [key](const auto& entry) { return entry.key == key; });
    return value != element.values.end() ? &*value : nullptr;
}

template <typename Conversion>
bool hasLeading(const std::string& text, Conversion conversion) {
    char* end = nullptr;
    errno = 0;
    conversion(text.c_str(), &end, 10);
    return end != text.c_str() && errno == 0;
}

/// What is wrong with the text; empty if it is what is needed.
std::string findFault(Need need, const std::string& text) {
    switch (need) {
        case Need::SyncMode:
            return hasLeading(text, std::strtoll)
                       ? ""
                       : "is neither 2 (in software) nor 12 (by the pulse per second)";
        case Need::Counter:
            return hasLeading(text, std::strtoull) ? "" : "is no number";
        case Need::Number:
            return parseNumber<std::uint32_t>(text) ? "" : "is no number from 0 to 4294967295";
        case Need::Flag:
            return text == "True" || text == "False" ? "" : "is neither True nor False";
        case Need::Rate: {
            const auto rate = parseNumber<float>(text);
            return rate && *rate >= 0.0F && *rate <= highestRate
                       ? ""
                       : fmt::format("is no number from 0 to {:.0f}", highestRate);
        }
    }
    return {};
}

/// The modules of the plug-in's settings, in their order.
std::vector<const SetupElement*> modulesOf(const SetupElement& settings) {
    std::vector<const SetupElement*> found;
    for (const auto& list : settings.getContent().children) {
        for (const auto& module : list->getContent().children) {
            if (list->getContent().name == L"CmpDevices") {
                found.push_back(module.get());
            }
        }
    }
    return found;
}

class Check {
  public:
    std::vector<std::string> faults;

    void look(const SetupElement& element) {
        Places places;
        for (const auto& child : element.getContent().children) {
            const auto& content = child->getContent();
            for (const auto& attribute : content.attributes) {
                if (attribute->getContent().name == L"Id") {
                    note(places[{content.name, L"@Id"}], {L"", "Id", false},
                         attribute->getContent().text, child->getLine());
                }
            }
            for (const auto& value : content.values) {
                noteValue(places, content, value);
            }
            if (content.name == L"OutputChannel") {
                noteChannel(content);
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
        note((known->isOfAll ? placesOfAll : places)[{element.name, key}], *known, value.text,
             value.line);
    }

    void noteChannel(const SetupElement::Content& channel) {
        for (const auto& child : channel.children) {
            const auto& content = child->getContent();
            if (content.name != L"Index") {
                continue;
            }
            const auto [first, isNew] = indices.try_emplace(content.text, child->getLine());
            if (!isNew) {
                faults.push_back(fmt::format("line {}: the Index {} is that of line {} too",
                                             child->getLine(), StringHelper::ToUtf8(content.text),
                                             first->second));
            }
        }
    }

    static std::wstring typeOf(const SetupElement::Content& element) {
        const auto* const type = valueOf(element, typeKey);
        return type != nullptr ? type->text : L"";
    }

    void note(Lines& lines, const NumberKey& key, const std::wstring& text, std::size_t line) {
        const auto number = parseNumber<std::uint32_t>(StringHelper::ToUtf8(text));
        if (!number) {
            return;
        }
        const auto [first, isNew] = lines.try_emplace(*number, line);
        if (!isNew) {
            faults.push_back(fmt::format("line {}: the {} {} is that of line {} too", line,
                                         key.meaning, *number, first->second));
        }
    }

    Places placesOfAll;
    std::map<std::wstring, std::size_t> indices;  ///< of the host's channels, the line by text
};

void addUnreadable(const SetupElement& section, std::vector<std::string>& faults) {
    for (const auto& child : section.getContent().children) {
        const auto& content = child->getContent();
        for (const auto& value : content.values) {
            const auto* const needed =
                std::find_if(neededKeys.begin(), neededKeys.end(), [&](const Needed& entry) {
                    return content.name == entry.element && value.key == entry.key;
                });
            const std::string text = StringHelper::ToUtf8(value.text);
            const std::string fault =
                needed != neededKeys.end() ? findFault(needed->need, text) : "";
            if (!fault.empty()) {
                faults.push_back(fmt::format("line {}: the {} \"{}\" {}", value.line,
                                             StringHelper::ToUtf8(value.key), text, fault));
            }
        }
        addUnreadable(*child, faults);
    }
}

}  // namespace

std::vector<std::string> findSetupFaults(const SetupElement& section) {
    Check check;
    check.look(section);
    return std::move(check.faults);
}

std::vector<std::string> findIgnored(const SetupElement& parent, const SetupElement::List& known) {
    std::vector<std::string> texts;
    for (const auto& child : parent.getContent().children) {
        const bool isKnown =
            std::ranges::any_of(known, [&](const auto& each) { return each.get() == child.get(); });
        if (!isKnown) {
            texts.push_back(fmt::format("line {}: this <{}> is ignored", child->getLine(),
                                        StringHelper::ToUtf8(child->getContent().name)));
        }
    }
    return texts;
}

std::vector<std::string> findUnreadable(const SetupElement& section) {
    std::vector<std::string> faults;
    addUnreadable(section, faults);
    return faults;
}

std::vector<std::string> findModuleFaults(const SetupElement& settings,
                                          const std::vector<ListedModule>& modules) {
    std::vector<std::string> faults;
    const auto elements = modulesOf(settings);
    std::map<std::uint16_t, std::size_t> first;  // place by CM ID
    for (std::size_t i = 0; i < std::min(elements.size(), modules.size()); ++i) {
        const ListedModule& module = modules[i];
        const auto* const type = valueOf(elements[i]->getContent(), typeKey);
        if (type != nullptr && module.type == noType) {
            faults.push_back(
                type->text == noTypeId
                    ? fmt::format("line {}: the module has no type yet: it gets no messages",
                                  type->line)
                    : fmt::format("line {}: there is no type of module with the DeviceTypeId {}: "
                                  "it gets no messages",
                                  type->line, StringHelper::ToUtf8(type->text)));
            continue;
        }
        const auto* const configId = valueOf(elements[i]->getContent(), configIdKey);
        const auto number = configId == nullptr
                                ? std::nullopt
                                : parseNumber<std::uint32_t>(StringHelper::ToUtf8(configId->text));
        if (number && *number != module.configId) {
            faults.push_back(fmt::format(
                "line {}: a {} can't have the ConfigId {}: it listens to CM ID 0x{:X}, and has the "
                "ConfigId {} once the setup is saved",
                configId->line, StringHelper::ToUtf8(module.type), *number, module.cmId,
                module.configId));
            continue;
        }
        const auto [other, isNew] = first.try_emplace(module.cmId, i);
        if (!isNew && modules[other->second].type != module.type) {
            faults.push_back(fmt::format(
                "line {}: the module has the CM ID 0x{:X}, as that of line {} has: it gets no "
                "messages",
                elements[i]->getLine(), module.cmId, elements[other->second]->getLine()));
        }
    }
    return faults;
}

}  // namespace station
