#include "station/document/setup_losses.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "core/parse_number.h"
#include "core/string_helper.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;
using Content = SetupElement::Content;

constexpr const wchar_t* clockName = L"GNSSClock";
constexpr const wchar_t* outputName = L"Output";
constexpr const wchar_t* moduleName = L"CmpDevice";
constexpr const wchar_t* busName = L"Channel";
constexpr const wchar_t* channelName = L"OutputChannel";
constexpr const wchar_t* idName = L"Id";

/// A value that isn't written where it is this.
struct Default {
    const wchar_t* element;
    const wchar_t* key;
    std::wstring_view text;
};
constexpr std::array<Default, 7> defaults = {{{clockName, L"SyncMode", L"2"},
                                              {clockName, L"ClockSource", L"False"},
                                              {outputName, L"IsAutomaticName", L"True"},
                                              {outputName, L"IsAutomaticUnit", L"True"},
                                              {outputName, L"IsAutomaticColor", L"True"},
                                              {channelName, L"BitRate", L"0"},
                                              {channelName, L"DataBitRate", L"0"}}};

/// A value that is the Id of another element.
struct Reference {
    const wchar_t* element;
    const wchar_t* key;
    const wchar_t* target;
    const char* otherwise;  ///< what comes of one that leads nowhere
};
constexpr std::array<Reference, 2> references = {
    {{busName, L"ChId", outputName, "the bus gets a new channel"},
     {moduleName, L"ClockId", clockName, "the module gets a new clock, as for sync in software"}}};

template <typename Table>
auto rowOf(const Table& table, const Content& element, const std::wstring& key) {
    const auto row = std::find_if(table.begin(), table.end(), [&](const auto& entry) {
        return element.name == entry.element && key == entry.key;
    });
    return row != table.end() ? &*row : nullptr;
}

/// As in a message.
std::string shown(const std::wstring& text) {
    constexpr std::size_t longest = 80;
    return StringHelper::ToUtf8(text.size() > longest ? text.substr(0, longest) + L"..." : text);
}

/// The number that a text begins with, as 64 bits; empty if there is none.
std::optional<std::uint64_t> leadingNumber(const std::wstring& text) {
    const std::string plain = StringHelper::ToUtf8(text);
    char* end = nullptr;
    errno = 0;
    const std::uint64_t number = std::strtoull(plain.c_str(), &end, 10);
    return end != plain.c_str() && errno == 0 ? std::optional(number) : std::nullopt;
}

/// The number by which the plug-in knows a clock or an output; empty for what it passes over, and
/// for any other element.
std::optional<std::uint32_t> idOf(const SetupElement& element) {
    if (element.getContent().name == outputName) {
        const std::wstring* const id = element.findValue(idName);
        const auto number = id != nullptr ? leadingNumber(*id) : std::nullopt;
        return number && *number <= std::numeric_limits<std::uint32_t>::max()
                   ? std::optional(static_cast<std::uint32_t>(*number))
                   : std::nullopt;
    }
    if (element.getContent().name == clockName) {
        for (const auto& attribute : element.getContent().attributes) {
            const auto number = attribute->getContent().name == idName
                                    ? leadingNumber(attribute->getContent().text)
                                    : std::nullopt;
            if (number) {
                return static_cast<std::uint32_t>(*number);
            }
        }
    }
    return std::nullopt;
}

bool isSame(std::wstring_view text, std::wstring_view other) {
    if (text == other) {
        return true;
    }
    const auto number = parseNumber<double>(StringHelper::ToUtf8(std::wstring(text)));
    return number && number == parseNumber<double>(StringHelper::ToUtf8(std::wstring(other)));
}

/// Whether the value moves by itself, or is a number that findModuleFaults judges.
bool isPassedOver(const Content& element, const SetupElement::Value& value) {
    if (element.name == moduleName && value.key == L"SerialNumber") {
        return true;
    }
    return (value.key == L"ColorCounter" || value.key == L"DeviceTypeId" ||
            value.key == L"ConfigId") &&
           parseNumber<std::uint32_t>(StringHelper::ToUtf8(value.text));
}

template <typename Action>
void forEach(const SetupElement& element, const Action& action) {
    action(element);
    for (const auto& child : element.getContent().children) {
        forEach(*child, action);
    }
}

class Comparison {
  public:
    std::vector<std::string> losses;

    Comparison(const SetupElement& read, const SetupElement& kept) {
        forEach(read, [this](const SetupElement& element) {
            if (const auto id = idOf(element)) {
                targets.insert({element.getContent().name, *id});
            }
        });
        forEach(kept, [this](const SetupElement& element) {
            const auto& content = element.getContent();
            for (const auto& value : content.values) {
                if (const auto* const reference = rowOf(references, content, value.key)) {
                    used.insert({reference->target, numberOf(value.text)});
                }
            }
        });
        compare(read, kept, read.getLine());
    }

  private:
    using Id = std::pair<std::wstring, std::uint32_t>;  ///< with the element's name
    using Places = std::map<Id, const SetupElement*>;
    /// Elements of one name that are passed over, in one list.
    struct Group {
        std::size_t line;
        std::size_t count = 0;
    };

    static std::uint32_t numberOf(const std::wstring& text) {
        return static_cast<std::uint32_t>(leadingNumber(text).value_or(0));
    }

    void compare(const SetupElement& read, const SetupElement& kept, std::size_t line) {
        const Content& was = read.getContent();
        const Content& is = kept.getContent();
        if (was.name != is.name) {
            losses.push_back(fmt::format("line {}: this <{}> is taken as <{}>", line,
                                         shown(was.name), shown(is.name)));
        }
        if (is.text.empty() && !was.text.empty()) {
            losses.push_back(fmt::format(
                "line {}: the text \"{}\" in <{}> is ignored, and saving the setup leaves it out",
                line, shown(was.text), shown(was.name)));
        } else if (!isSame(was.text, is.text)) {
            noteChange(line, was.name, was.text, is.text);
        }
        for (const auto& value : was.values) {
            compareValue(value, kept);
        }
        compareLists(was.attributes, is.attributes, line, "the attribute {}");
        compareLists(was.children, is.children, line, "this <{}>");
    }

    void noteChange(std::size_t line, const std::wstring& name, std::wstring_view was,
                    std::wstring_view is) {
        losses.push_back(fmt::format("line {}: the {} \"{}\" is taken as {}", line, shown(name),
                                     shown(std::wstring(was)), shown(std::wstring(is))));
    }

    void compareValue(const SetupElement::Value& value, const SetupElement& element) {
        const Content& content = element.getContent();
        const std::wstring* const kept = element.findValue(value.key);
        const auto* const usual = rowOf(defaults, content, value.key);
        const auto* const reference = rowOf(references, content, value.key);
        if (kept == nullptr && usual == nullptr) {
            losses.push_back(fmt::format(
                "line {}: the value \"{}\" is ignored, and saving the setup leaves it out",
                value.line, shown(value.key)));
            return;
        }
        const std::wstring_view is = kept != nullptr ? *kept : usual->text;
        if (reference != nullptr &&
            !targets.contains({reference->target, numberOf(std::wstring(is))})) {
            losses.push_back(fmt::format("line {}: the {} \"{}\" leads to no <{}>: {}", value.line,
                                         shown(value.key), shown(value.text),
                                         shown(reference->target), reference->otherwise));
        } else if (!isSame(value.text, is) && !isPassedOver(content, value)) {
            noteChange(value.line, value.key, value.text, is);
        }
    }

    /// Modules and buses are counted, whatever their elements' name.
    static bool isCounted(const SetupElement::List& kept) {
        return !kept.empty() && (kept.front()->getContent().name == moduleName ||
                                 kept.front()->getContent().name == busName);
    }

    /// Counts in `counts` what has no number of its own. Empty for what the plug-in passes over.
    static std::optional<Id> placeOf(const SetupElement& element, bool counted,
                                     std::map<std::wstring, std::uint32_t>& counts) {
        const std::wstring& name = element.getContent().name;
        if (!counted && (name == outputName || name == clockName)) {
            const auto id = idOf(element);
            return id ? std::optional(Id{name, *id}) : std::nullopt;
        }
        const std::wstring kind = counted ? L"" : name;
        return Id{kind, counts[kind]++};
    }

    void compareLists(const SetupElement::List& read, const SetupElement::List& kept,
                      std::size_t line, const char* naming) {
        const bool counted = isCounted(kept);
        Places places;
        std::map<std::wstring, std::uint32_t> counts;
        for (const auto& element : kept) {
            if (const auto place = placeOf(*element, counted, counts)) {
                places.emplace(*place, element.get());
            }
        }
        counts.clear();
        std::map<std::wstring, Group> ignored;
        for (const auto& element : read) {
            const std::size_t own = element->getLine() != 0 ? element->getLine() : line;
            const auto place = placeOf(*element, counted, counts);
            const auto found = place ? places.find(*place) : places.end();
            if (found == places.end()) {
                ++ignored.try_emplace(element->getContent().name, Group{own}).first->second.count;
                continue;
            }
            compare(*element, *found->second, own);
            if (place->first == clockName && !used.contains(*place)) {
                losses.push_back(fmt::format(
                    "line {}: no ClockId leads to this <GNSSClock>: it counts for nothing", own));
            }
            places.erase(found);
        }
        for (const auto& [name, group] : ignored) {
            noteIgnored(fmt::format(fmt::runtime(naming), shown(name)), group,
                        name == outputName ? ": no ChId leads there" : "");
        }
    }

    void noteIgnored(const std::string& what, const Group& group, const char* reason) {
        losses.push_back(
            group.count == 1
                ? fmt::format("line {}: {} is ignored, and saving the setup leaves it out{}",
                              group.line, what, reason)
                : fmt::format("line {}: {} and {} more below it are ignored, and saving the setup "
                              "leaves them out{}",
                              group.line, what, group.count - 1, reason));
    }

    std::set<Id> targets;  ///< what the references of the file can lead to
    std::set<Id> used;     ///< what those of the plug-in lead to
};

}  // namespace

std::vector<std::string> findLosses(const SetupElement& read, const SetupElement& kept) {
    return std::move(Comparison(read, kept).losses);
}

}  // namespace station
