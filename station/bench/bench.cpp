#include "station/bench/bench.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include <strings.h>

#include "capture/device_types.h"
#include "core/string_helper.h"
#include "station/bench/registered_plugins.h"
#include "station/document/setup_xml.h"
#include "station/exit_codes.h"

namespace station {
namespace {

namespace fs = std::filesystem;
using Kestrova::Utils::Kcom::StringHelper;
using ElementRef = CountedRef<SetupElement>;

constexpr const wchar_t* rootName = L"Setup";
constexpr const wchar_t* sectionName = L"Plugin";
constexpr const wchar_t* idName = L"id";
constexpr const wchar_t* settingsName = L"Settings";
constexpr const wchar_t* channelsName = L"Channels";

fs::path choosePlugin(const fs::path& chosen) {
    if (!chosen.empty()) {
        return chosen;
    }
    if (const auto registered = findPlugin(cmpPluginClassId)) {
        return registered->module;
    }
    std::error_code error;
    const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / "cmp_plugin.so";
    if (fs::exists(beside, error)) {
        return beside;
    }
    throw PluginError(fmt::format(
        "there is no plug-in: none is registered, and there is no {}; register one with "
        "\"cmp-station plugins --register FILE\", or name it with --plugin FILE",
        beside.string()));
}

std::wstring classIdText() {
    return StringHelper::ToWide(toText(cmpPluginClassId));
}

ElementRef newElement(const wchar_t* name) {
    return makeCounted<SetupElement>(name, L"");
}

ElementRef newChild(SetupElement& parent, const wchar_t* name) {
    const ElementRef child = newElement(name);
    parent.AddChild(child.get());
    return child;
}

ElementRef childOf(const SetupElement& parent, const wchar_t* name) {
    for (const ElementRef& child : parent.getContent().children) {
        if (child->getContent().name == name) {
            return child;
        }
    }
    return {};
}

/// The plug-in's own, empty if it has none.
ElementRef findSection(const SetupElement& root) {
    for (const ElementRef& child : root.getContent().children) {
        const auto& attributes = child->getContent().attributes;
        const bool own = std::any_of(attributes.begin(), attributes.end(), [](const auto& id) {
            return id->getContent().name == idName && id->getContent().text == classIdText();
        });
        if (own && child->getContent().name == sectionName) {
            return child;
        }
    }
    return {};
}

/// Under which name the host shows each module's clock: modules of one name are numbered.
std::vector<std::wstring> clockNames(const std::vector<ModuleFacts>& modules) {
    std::map<std::string, int> total;
    for (const ModuleFacts& module : modules) {
        ++total[module.name];
    }
    std::map<std::string, int> counted;
    std::vector<std::wstring> names;
    for (const ModuleFacts& module : modules) {
        const bool alone = total[module.name] == 1;
        names.push_back(StringHelper::ToWide(
            alone ? module.name : fmt::format("{} - {}", module.name, ++counted[module.name])));
    }
    return names;
}

}  // namespace

Bench::Bench(BenchOptions options) : component(choosePlugin(options.plugin)) {
    StationHostOptions hostOptions;
    hostOptions.sampleRate = options.sampleRate;
    hostOptions.documentFactory =
        CountedRef<HostDocumentFactory>(makeCounted<SetupDocumentFactory>().get());
    hostOptions.onError = std::move(options.onError);
    stationHost = makeCounted<StationHost>(counter, std::move(hostOptions));
    pluginDriver = std::make_unique<PluginDriver>(component.create(cmpPluginClassId), stationHost);
    pluginDriver->connect();
}

void Bench::begin() {
    document = makeCounted<SetupDocument>(false);
    document->SetRootElement(newElement(rootName).get());
    pluginDriver->clearSetup();
}

void Bench::open(const SetupFile& file) {
    document = file.load();
    const ElementRef section = findSection(*document->getRoot());
    if (!section) {
        pluginDriver->clearSetup();
        return;
    }
    try {
        // A part that isn't there is empty.
        ElementRef settings = childOf(*section, settingsName);
        ElementRef channels = childOf(*section, channelsName);
        settings = settings ? settings : newElement(settingsName);
        channels = channels ? channels : newElement(channelsName);
        pluginDriver->loadSettings(*document, *settings);
        pluginDriver->loadSetup(*document, *channels);
        pluginDriver->updateDevices();
    } catch (const PluginError& error) {
        throw PluginError(
            fmt::format("Cannot load the setup \"{}\": {}", file.getPath().string(), error.what()));
    }
}

ElementRef Bench::writeSection() {
    const ElementRef section = newElement(sectionName);
    section->AddAttribute(makeCounted<SetupElement>(idName, classIdText()).get());
    pluginDriver->saveSettings(*document, *newChild(*section, settingsName));
    pluginDriver->saveSetup(*document, *newChild(*section, channelsName));
    return section;
}

/// Replaces what the plug-in wrote before, and leaves what else is in its section.
void Bench::putSection() {
    const ElementRef fresh = writeSection();
    const ElementRef old = findSection(*document->getRoot());
    if (!old) {
        document->getRoot()->AddChild(fresh.get());
        return;
    }
    for (const wchar_t* name : {settingsName, channelsName}) {
        if (const ElementRef outdated = childOf(*old, name)) {
            old->RemoveChild(outdated.get());
        }
        const ElementRef part = childOf(*fresh, name);
        fresh->RemoveChild(part.get());
        old->AddChild(part.get());
    }
}

void Bench::save(const SetupFile& file) {
    putSection();
    file.save(*document);
}

std::string Bench::text() {
    putSection();
    return toSetupXml(*document->getRoot());
}

std::vector<ModuleFacts> Bench::readFacts() {
    const ElementRef settings = newElement(settingsName);
    pluginDriver->saveSettings(*document, *settings);
    return readModules(*document, *settings);
}

void Bench::addModule(const ModuleOption& option) {
    const DeviceTypeInfo* type = nullptr;
    std::string known;
    for (const DeviceTypeInfo& candidate : deviceTypes()) {
        if (candidate.typeId != DeviceTypeInfo::unknownId) {
            known += (known.empty() ? "" : ", ") + candidate.name;
            if (strcasecmp(candidate.name.c_str(), option.type.c_str()) == 0) {
                type = &candidate;
            }
        }
    }
    if (type == nullptr) {
        throw CommandError(
            ExitCode::WrongUse,
            fmt::format("there is no module type \"{}\"; there are: {}", option.type, known));
    }
    const ElementRef settings = newElement(settingsName);
    pluginDriver->saveSettings(*document, *settings);
    const ElementRef channels = newElement(channelsName);
    pluginDriver->saveSetup(*document, *channels);
    ElementRef devices = childOf(*settings, L"CmpDevices");
    devices = devices ? devices : newChild(*settings, L"CmpDevices");
    const ElementRef device = newChild(*devices, L"CmpDevice");
    device->setValue(L"ClockId", std::to_wstring(devices->getContent().children.size() + 100));
    device->setValue(L"DeviceTypeId", std::to_wstring(type->typeId));
    device->setValue(L"ConfigId", std::to_wstring(option.configId));
    device->setValue(L"Name",
                     StringHelper::ToWide(option.name.empty() ? type->fullName : option.name));
    pluginDriver->loadSettings(*document, *settings);
    pluginDriver->loadSetup(*document, *channels);
    pluginDriver->updateDevices();
    for (const ChannelOwner& owner : channelOwners()) {
        if (owner.module + 1 == modules().size()) {
            for (const auto& channel : stationHost->channels().all()) {
                if (channel->indices().back() == owner.output) {
                    channel->setUsed(hostTrue);
                    channel->setName(
                        StringHelper::ToWide(fmt::format("{} 0x{:X}", modules().back().name,
                                                         owner.interfaceId))
                            .c_str());
                }
            }
        }
    }
}

std::vector<ModuleSummary> Bench::modules() {
    std::vector<ModuleSummary> summaries;
    for (ModuleFacts& facts : readFacts()) {
        summaries.push_back({std::move(facts.name), deviceTypeById(facts.typeId).name, facts.configId, facts.cmId,
                             std::move(facts.serial), facts.connected});
    }
    return summaries;
}

std::vector<ChannelOwner> Bench::channelOwners() {
    const ElementRef channels = newElement(channelsName);
    pluginDriver->saveSetup(*document, *channels);
    auto owners = readChannelOwners(*document, *channels);
    const auto facts = readFacts();
    for (ChannelOwner& owner : owners) {
        const auto& type = deviceTypeById(facts.at(owner.module).typeId);
        owner.interfaceId =
            static_cast<std::uint16_t>(type.channelDescriptors.at(owner.position) >> 16U);
    }
    return owners;
}

std::vector<ClockChoice> Bench::clocks() {
    pluginDriver->updateDevices();
    const auto& devices = stationHost->gnssPlaces().getDevices();
    std::vector<ClockChoice> choices;
    for (const std::wstring& name : clockNames(readFacts())) {
        const auto device = devices.find(name);
        choices.push_back(device == devices.end() ? ClockChoice() : device->second->getChoice());
    }
    return choices;
}

void Bench::chooseClock(std::size_t module, ClockChoice choice) {
    stationHost->gnssPlaces().choose(clockNames(readFacts()).at(module), choice);
    pluginDriver->updateDevices();
}

}  // namespace station
