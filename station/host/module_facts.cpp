#include "station/host/module_facts.h"

#include <algorithm>
#include <charconv>

#include "core/string_helper.h"
#include "host/host_error.h"

namespace station {
namespace {

/// What a module that isn't connected has for its serial number.
constexpr const char* noSerial = "N/A";

std::string readText(HostDocument& document, HostElement& element, const wchar_t* key) {
    std::wstring value;
    callHost(&document, &HostDocument::ReadValue, &element, key, &value, L"");
    return Kestrova::Utils::Kcom::StringHelper::ToUtf8(value);
}

template <typename Number>
Number readNumber(HostDocument& document, HostElement& element, const wchar_t* key,
                  Number absent = 0) {
    const std::string text = readText(document, element, key);
    Number number = absent;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

/// The children of that name, of one element or of none.
std::vector<CountedRef<HostElement>> childrenOf(const CountedRef<HostElement>& parent,
                                                const wchar_t* name) {
    std::vector<CountedRef<HostElement>> found;
    if (!parent) {
        return found;
    }
    const auto count = hostValue(parent, &HostElement::GetChildCount);
    for (std::int32_t i = 0; i < count; ++i) {
        auto child = hostObject(parent, &HostElement::GetChild, i);
        if (child && hostValue(child, &HostElement::GetName) == name) {
            found.push_back(std::move(child));
        }
    }
    return found;
}

/// The ids of all clocks in the plug-in's order.
std::vector<std::string> clockIds(HostElement& settings) {
    std::vector<std::string> ids;
    const auto list = hostObject(&settings, &HostElement::FindChild, L"GNSSSyncManager");
    for (const auto& clock : childrenOf(list, L"GNSSClock")) {
        const auto id = hostObject(clock, &HostElement::FindAttribute, L"Id");
        ids.push_back(
            id ? Kestrova::Utils::Kcom::StringHelper::ToUtf8(hostValue(id, &HostElement::GetText))
               : std::string());
    }
    return ids;
}

std::vector<CountedRef<HostElement>> modulesOf(HostElement& element) {
    return childrenOf(hostObject(&element, &HostElement::FindChild, L"CmpDevices"), L"CmpDevice");
}

}  // namespace

std::vector<ModuleFacts> readModules(HostDocument& document, HostElement& settings) {
    const auto clocks = clockIds(settings);
    std::vector<ModuleFacts> modules;
    for (const auto& module : modulesOf(settings)) {
        ModuleFacts facts;
        facts.typeId = readNumber<std::uint32_t>(document, *module, L"DeviceTypeId");
        facts.configId = readNumber<std::uint16_t>(document, *module, L"ConfigId");
        facts.cmId = readNumber<std::uint16_t>(document, *module, L"Id");
        facts.name = readText(document, *module, L"Name");
        facts.serial = readText(document, *module, L"SerialNumber");
        facts.connected = !facts.serial.empty() && facts.serial != noSerial;
        const auto clock =
            std::find(clocks.begin(), clocks.end(), readText(document, *module, L"ClockId"));
        facts.clock = static_cast<std::size_t>(clock - clocks.begin());
        modules.push_back(std::move(facts));
    }
    return modules;
}

std::vector<ChannelOwner> readChannelOwners(HostDocument& document, HostElement& setup) {
    std::vector<ChannelOwner> owners;
    std::size_t module = 0;
    for (const auto& element : modulesOf(setup)) {
        const auto list = hostObject(element, &HostElement::FindChild, L"Channels");
        std::size_t position = 0;
        for (const auto& channel : childrenOf(list, L"Channel")) {
            const auto output = readNumber<std::int32_t>(document, *channel, L"ChId", -1);
            owners.push_back({output, module, position++, 0});
        }
        ++module;
    }
    return owners;
}

}  // namespace station
