#include "station/bench/bench.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "core/string_helper.h"
#include "station/bench/registered_plugins.h"
#include "station/document/setup_xml.h"

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

fs::path choosePlugin(const BenchOptions& options) {
    if (!options.plugin.empty()) {
        return options.plugin;
    }
    const std::string passedOver = passedOverText();
    if (!passedOver.empty() && options.onError) {
        options.onError(passedOver);
    }
    if (const auto registered = findPlugin(cmpPluginClassId)) {
        return registered->module;
    }
    std::error_code error;
    fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / "cmp_plugin.so";
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
    return makeObject<SetupElement>(name, L"");
}

ElementRef newChild(SetupElement& parent, const wchar_t* name) {
    ElementRef child = newElement(name);
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

/// Takes the modules without channels off the end of the saved list.
void dropNewModules(HostDocument& document, SetupElement& channels) {
    const ElementRef list = childOf(channels, L"CmpDevices");
    if (!list) {
        return;
    }
    std::vector<bool> hasChannels(list->getContent().children.size());
    for (const ChannelOwner& owner : readChannelOwners(document, channels)) {
        hasChannels.at(owner.module) = hasChannels.at(owner.module) || owner.output >= 0;
    }
    while (!hasChannels.empty() && !hasChannels.back()) {
        hasChannels.pop_back();
        const ElementRef last = list->getContent().children.back();
        list->RemoveChild(last.get());
    }
}

}  // namespace

Bench::Bench(BenchOptions options) : pluginModule(choosePlugin(options)) {
    StationHostOptions hostOptions;
    hostOptions.sampleRate = options.sampleRate;
    hostOptions.documentFactory = makeObject<SetupDocumentFactory>();
    hostOptions.onError = std::move(options.onError);
    stationHost = makeObject<StationHost>(counter, std::move(hostOptions));
    pluginDriver =
        std::make_unique<PluginDriver>(pluginModule.create(cmpPluginClassId), stationHost);
    pluginDriver->connect();
    begin();
    pluginWindows = std::make_unique<PluginWindows>(*pluginDriver);
}

void Bench::begin() {
    document = makeObject<SetupDocument>(false);
    document->SetRootElement(newElement(rootName).get());
    pluginDriver->clearSetup();
}

void Bench::open(const SetupFile& file) {
    document = file.load();
    const ElementRef section = findSection(*document->getRoot());
    if (!section) {
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
        pluginWindows->remakeModules();
        pluginWindows->remakeChannels();
    } catch (const PluginError& error) {
        throw PluginError(
            fmt::format("Cannot load the setup \"{}\": {}", file.getPath().string(), error.what()));
    }
}

ElementRef Bench::writeSection() {
    ElementRef section = newElement(sectionName);
    section->AddAttribute(makeObject<SetupElement>(idName, classIdText()).get());
    pluginDriver->saveSettings(*document, *newChild(*section, settingsName));
    section->AddChild(saveChannels().get());
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

ElementRef Bench::saveChannels() {
    ElementRef channels = newElement(channelsName);
    pluginDriver->saveSetup(*document, *channels);
    return channels;
}

/// The plug-in takes each module's channels from its place in the saved list, and makes new ones
/// for modules behind the end of it.
void Bench::refreshChannels() {
    const ElementRef channels = saveChannels();
    const auto isNew = [](const ChannelOwner& owner) { return owner.output < 0; };
    auto owners = readChannelOwners(*document, *channels);
    std::erase_if(owners, [&](const ChannelOwner& owner) { return !isNew(owner); });
    dropNewModules(*document, *channels);
    pluginDriver->loadSetup(*document, *channels);
    pluginDriver->updateDevices();
    pluginWindows->remakeChannels();
    const auto rows = pluginWindows->channels();
    const auto facts = readFacts();
    for (const ChannelRow& row : rows) {
        const bool fresh = std::any_of(owners.begin(), owners.end(), [&](const auto& owner) {
            return owner.module == row.module && owner.position == row.position;
        });
        const auto channel = fresh ? findChannel(row.module, row.position) : nullptr;
        if (channel) {
            channel->setUsed(hostFalse);
            channel->setName(StringHelper::ToWide(
                                 fmt::format("{} 0x{:X}", facts[row.module].name, row.interfaceId))
                                 .c_str());
        }
    }
}

std::vector<ModuleSummary> Bench::modules() {
    const auto rows = pluginWindows->modules();
    std::vector<ModuleSummary> summaries;
    for (ModuleFacts& facts : readFacts()) {
        const std::size_t place = summaries.size();
        summaries.push_back({std::move(facts.name),
                             place < rows.size() ? rows[place].type : std::string(), facts.configId,
                             facts.cmId, std::move(facts.serial), facts.connected});
    }
    return summaries;
}

std::vector<ChannelOwner> Bench::channelOwners() {
    auto owners = readChannelOwners(*document, *saveChannels());
    for (const ChannelRow& row : pluginWindows->channels()) {
        for (ChannelOwner& owner : owners) {
            if (owner.module == row.module && owner.position == row.position) {
                owner.interfaceId = row.interfaceId;
            }
        }
    }
    return owners;
}

CountedRef<StationChannel> Bench::findChannel(std::size_t module, std::size_t position) {
    for (const ChannelOwner& owner : readChannelOwners(*document, *saveChannels())) {
        if (owner.module == module && owner.position == position) {
            for (const auto& channel : stationHost->channels().all()) {
                if (channel->indices().back() == owner.output) {
                    return channel;
                }
            }
        }
    }
    return {};
}

std::vector<CountedRef<GnssDevice>> Bench::clockDevices() {
    pluginDriver->updateDevices();
    const auto& devices = stationHost->gnssPlaces().getDevices();
    std::vector<CountedRef<GnssDevice>> found;
    for (const ModuleFacts& facts : readFacts()) {
        found.push_back(facts.clock < devices.size() ? devices[facts.clock]
                                                     : CountedRef<GnssDevice>());
    }
    return found;
}

std::vector<ClockChoice> Bench::clocks() {
    std::vector<ClockChoice> choices;
    for (const auto& device : clockDevices()) {
        choices.push_back(device ? device->getChoice() : ClockChoice());
    }
    return choices;
}

void Bench::chooseClock(std::size_t module, ClockChoice choice) {
    const auto device = clockDevices().at(module);
    if (!device || !device->getSyncModes().contains(choice.syncMode)) {
        throw PluginError(fmt::format("the clock of module {} has no such sync mode", module + 1));
    }
    device->choose(choice);
    pluginDriver->updateDevices();
}

}  // namespace station
