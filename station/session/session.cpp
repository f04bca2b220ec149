#include "station/session/session.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fmt/xchar.h>
#include <strings.h>

#include <algorithm>
#include <map>
#include <set>

#include "core/string_helper.h"
#include "station/document/setup_check.h"
#include "station/document/setup_losses.h"
#include "station/session/loaded_module.h"
#include "station/session/registered_plugins.h"

namespace station {
namespace {

namespace fs = std::filesystem;
using Kestrova::Utils::Kcom::StringHelper;
using ElementRef = CountedRef<SetupElement>;

constexpr const wchar_t* sectionName = L"Plugin";
constexpr const wchar_t* idName = L"id";
constexpr const wchar_t* settingsName = L"Settings";
constexpr const wchar_t* channelsName = L"Channels";
constexpr const wchar_t* streamName = L"Stream";

/// Loads the plug-in that is named, else the one that is registered, else the one beside the
/// program.
std::unique_ptr<PluginModule> loadPlugin(const SessionOptions& options) {
    if (!options.plugin.empty()) {
        return std::make_unique<PluginModule>(options.plugin, TrustedUsers::UserAndProgram);
    }
    const auto report = [&](const std::string& text) {
        if (!text.empty() && options.onError) {
            options.onError(text);
        }
    };
    report(passedOverText());
    if (const auto registered = findPlugin(cmpPluginClassId, report)) {
        return std::make_unique<PluginModule>(registered->module, TrustedUsers::User);
    }
    std::error_code error;
    const fs::path beside = programFolder() / "cmp_plugin.so";
    if (fs::exists(beside, error)) {
        return std::make_unique<PluginModule>(beside, TrustedUsers::UserAndProgram);
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

/// Of the parts that are in both.
std::vector<std::string> findLossesOf(const SetupElement& section, const SetupElement& fresh) {
    std::vector<std::string> losses;
    for (const wchar_t* name : {settingsName, channelsName}) {
        if (const ElementRef part = childOf(section, name)) {
            std::ranges::move(findLosses(*part, *childOf(fresh, name)), std::back_inserter(losses));
        }
    }
    return losses;
}

std::string toUtf8(const std::wstring& text) {
    return StringHelper::ToUtf8(text);
}

/// The host's channel of the plug-in's output, or null.
StationChannel* findChannel(StationHost& host, std::int32_t output) {
    constexpr std::int32_t firstPlugin = 0;  // there is no other
    return host.getChannels()
        .find({HostChannelGroups::pluginGroupIndex, firstPlugin, output})
        .get();
}

Channel describe(const ListedChannel& listed, StationHost& host) {
    Channel channel{listed.interfaceId, toUtf8(listed.busType), listed.output, {}};
    if (StationChannel* const output = findChannel(host, listed.output)) {
        channel.name = toUtf8(output->name());
        channel.isUsed = output->isUsed();
        output->getColor(&channel.color);
        channel.bitRates = output->getBitRates();
        for (const std::wstring& path : output->getDatabases()) {
            channel.databases.push_back(toUtf8(path));
        }
    }
    return channel;
}

}  // namespace

Session::Session(SessionOptions options) : pluginModule(loadPlugin(options)) {
    StationHostOptions hostOptions;
    hostOptions.sampleRate = options.sampleRate;
    hostOptions.documentFactory = makeObject<SetupDocumentFactory>();
    hostOptions.onError = std::move(options.onError);
    stationHost = makeObject<StationHost>(counter, std::move(hostOptions));
    pluginDriver =
        std::make_unique<PluginDriver>(pluginModule->create(cmpPluginClassId), stationHost);
    pluginDriver->connect();
    document = makeObject<SetupDocument>(false);
    document->SetRootElement(newElement(setupRootName).get());
    pluginDriver->clearSetup();
}

void Session::open(const SetupFile& file) {
    document = file.load();
    const ElementRef& root = document->getRoot();
    const ElementRef section = findSection(*root);
    report(file, findIgnored(*root, {section, childOf(*root, streamName)}));
    if (!section) {
        return;
    }
    // A part that isn't there is empty.
    ElementRef settings = childOf(*section, settingsName);
    ElementRef channels = childOf(*section, channelsName);
    report(file, findIgnored(*section, {settings, channels}));
    report(file, findSetupFaults(*section));
    const std::string failure =
        fmt::format("Cannot load the setup \"{}\": ", file.getPath().string());
    if (const auto faults = findUnreadable(*section); !faults.empty()) {
        report(file, {faults.begin() + 1, faults.end()});
        throw FileError(failure + faults.front());
    }
    settings = settings ? settings : newElement(settingsName);
    channels = channels ? channels : newElement(channelsName);
    try {
        pluginDriver->loadSettings(*document, *settings);
        pluginDriver->loadSetup(*document, *channels);
        pluginDriver->updateDevices();
        refreshModules();
        report(file, findModuleFaults(*settings, listed));
    } catch (const PluginError& error) {
        throw PluginError(failure + error.what());
    }
}

void Session::report(const SetupFile& file, const std::vector<std::string>& faults) {
    constexpr std::size_t most = 100;  // a file of another kind may have a million
    const auto write = [&](const std::string& text) {
        stationHost->writeError(
            StringHelper::ToWide(fmt::format("{}, {}", file.getPath().string(), text)).c_str());
    };
    const std::size_t count = std::min(faults.size(), most);
    std::for_each_n(faults.begin(), count, write);
    if (faults.size() > count) {
        write(fmt::format("{} more of its lines are as these", faults.size() - count));
    }
}

ElementRef Session::writeSection() {
    ElementRef section = newElement(sectionName);
    section->AddAttribute(makeObject<SetupElement>(idName, classIdText()).get());
    pluginDriver->saveSettings(*document, *newChild(*section, settingsName));
    pluginDriver->saveSetup(*document, *newChild(*section, channelsName));
    return section;
}

std::vector<std::string> Session::findLosses() {
    const ElementRef section = findSection(*document->getRoot());
    return section ? findLossesOf(*section, *writeSection()) : std::vector<std::string>();
}

/// Replaces what the plug-in wrote before, and leaves what else is in its section: behind it, as
/// the first of a name counts.
void Session::putSection(const std::function<void()>& onLosses) {
    const ElementRef fresh = writeSection();
    const ElementRef old = findSection(*document->getRoot());
    if (!old) {
        document->getRoot()->AddChild(fresh.get());
        return;
    }
    if (onLosses && !findLossesOf(*old, *fresh).empty()) {
        onLosses();
    }
    for (const wchar_t* name : {settingsName, channelsName}) {
        if (const ElementRef outdated = childOf(*old, name)) {
            old->RemoveChild(outdated.get());
        }
    }
    const SetupElement::List others = old->getContent().children;
    old->ClearChildren();
    for (const wchar_t* name : {settingsName, channelsName}) {
        const ElementRef part = childOf(*fresh, name);
        fresh->RemoveChild(part.get());
        old->AddChild(part.get());
    }
    for (const ElementRef& other : others) {
        old->AddChild(other.get());
    }
}

/// What is written for a bus without a channel makes one that nobody has named or chosen when it is
/// opened.
void Session::save(const SetupFile& file, const std::function<void()>& onLosses) {
    if (needsChannels()) {
        if (pluginDriver->isMeasuring()) {
            throw UserError(
                "The setup can't be saved now: modules were changed in the measurement and have no "
                "channels yet. Stop the measurement first.");
        }
        matchChannels();
    }
    putSection(onLosses);
    file.save(*document);
}

void Session::refreshModules() {
    std::uint64_t changes = 0;
    pluginDriver->callModules("list its modules",
                              [&](ModuleList& list) { return list.getChanges(&changes); });
    if (changes != changesSeen) {
        pluginDriver->callModules("list its modules",
                                  [&](ModuleList& list) { return list.getModules(&listed); });
        changesSeen = changes;
    }
}

std::vector<Module> Session::getModules() {
    refreshModules();
    std::vector<ModuleState> states;
    pluginDriver->callModules("list its modules",
                              [&](ModuleList& list) { return list.getStates(&states); });
    std::vector<Module> modules;
    for (const ListedModule& entry : listed) {
        const ModuleState& state = states.at(modules.size());
        Module module{toUtf8(entry.name), toUtf8(entry.type),         entry.configId,
                      entry.cmId,         toUtf8(state.serialNumber), state.isConnected};
        for (const ListedChannel& channel : entry.channels) {
            module.channels.push_back(describe(channel, *stationHost));
        }
        modules.push_back(std::move(module));
    }
    return modules;
}

std::vector<Module> Session::findUnlisted() {
    std::vector<ListedModule> found;
    pluginDriver->callModules("list modules that aren't set up",
                              [&](ModuleList& list) { return list.getUnlisted(&found); });
    std::vector<Module> modules;
    modules.reserve(found.size());
    for (const ListedModule& entry : found) {
        modules.push_back({toUtf8(entry.name), toUtf8(entry.type), entry.configId, entry.cmId});
    }
    return modules;
}

StationChannel& Session::findOutput(const Channel& channel) {
    StationChannel* const output = findChannel(*stationHost, channel.output);
    if (output == nullptr) {
        throw UserError(fmt::format("interface 0x{:X} has no channel yet", channel.interfaceId));
    }
    return *output;
}

/// The type of that name, whatever its case.
std::string Session::findType(const std::string& wanted) {
    std::vector<std::wstring> types;
    pluginDriver->callModules("list its module types",
                              [&](ModuleList& list) { return list.getTypes(&types); });
    std::vector<std::string> names;
    std::transform(types.begin(), types.end(), std::back_inserter(names), toUtf8);
    const auto found = std::find_if(names.begin(), names.end(), [&](const std::string& name) {
        return strcasecmp(name.c_str(), wanted.c_str()) == 0;
    });
    if (found == names.end()) {
        throw UserError(fmt::format("there is no module type \"{}\"; there are: {}", wanted,
                                    fmt::join(names, ", ")));
    }
    return *found;
}

std::size_t Session::addModule(const Module& module) {
    const std::wstring type = StringHelper::ToWide(findType(module.type));
    pluginDriver->callModules("add a module",
                              [&](ModuleList& list) { return list.addModule(type.c_str()); });
    refreshModules();
    const std::size_t place = listed.size() - 1;
    setConfigId(place, module.configId);
    if (!module.name.empty()) {
        setName(place, module.name);
    }
    requireOwnCmId(place);
    matchChannels();
    return place;
}

void Session::removeModules(std::vector<std::size_t> modules) {
    // From the last to the first, so that those still to come keep their positions.
    std::sort(modules.rbegin(), modules.rend());
    modules.erase(std::unique(modules.begin(), modules.end()), modules.end());
    for (const std::size_t module : modules) {
        pluginDriver->callModules("remove a module", [&](ModuleList& list) {
            return list.removeModule(static_cast<std::uint32_t>(module));
        });
    }
    matchChannels();
}

void Session::setType(std::size_t module, const std::string& type) {
    const std::wstring found = StringHelper::ToWide(findType(type));
    pluginDriver->callModules("change a module", [&](ModuleList& list) {
        return list.setType(static_cast<std::uint32_t>(module), found.c_str());
    });
    matchChannels();
}

void Session::setConfigId(std::size_t module, std::uint16_t configId) {
    HostResult result = HostCode::success;
    pluginDriver->callModules("change a module", [&](ModuleList& list) {
        result = list.setConfigId(static_cast<std::uint32_t>(module), configId);
        return result == HostCode::invalidArgument ? HostCode::success : result;
    });
    if (result == HostCode::invalidArgument) {
        throw UserError(fmt::format("there is no ConfigId {} for a {}; there are 0 to 15", configId,
                                    getModules().at(module).type));
    }
}

void Session::setName(std::size_t module, const std::string& name) {
    pluginDriver->callModules("change a module", [&](ModuleList& list) {
        return list.setName(static_cast<std::uint32_t>(module), StringHelper::ToWide(name).c_str());
    });
}

void Session::requireOwnCmId(std::size_t module) {
    refreshModules();
    for (std::size_t other = 0; other < listed.size(); ++other) {
        if (other != module && listed[other].cmId == listed.at(module).cmId) {
            throw UserError(fmt::format(
                "\"{}\" and \"{}\" both listen to CM ID 0x{:X}; give them different "
                "ConfigIds",
                toUtf8(listed[other].name), toUtf8(listed[module].name), listed[module].cmId));
        }
    }
}

std::vector<std::string> Session::findSharedIds() {
    refreshModules();
    std::vector<std::string> texts;
    std::map<std::uint16_t, std::string> first;
    std::map<std::int32_t, std::string> clockOwners;
    for (const ListedModule& module : listed) {
        const auto [other, isNew] = first.try_emplace(module.cmId, toUtf8(module.name));
        if (!isNew) {
            texts.push_back(fmt::format(
                "\"{}\" gets no messages: \"{}\" has the same CM ID 0x{:X}; give one of them "
                "another ConfigId",
                toUtf8(module.name), other->second, module.cmId));
        }
        const auto [owner, isOwn] = clockOwners.try_emplace(module.clock, toUtf8(module.name));
        if (module.clock >= 0 && !isOwn) {
            texts.push_back(
                fmt::format("\"{}\" and \"{}\" have one clock between them, and their times will "
                            "be wrong: give "
                            "each a ClockId of its own, or remove one and add it again",
                            owner->second, toUtf8(module.name)));
        }
    }
    return texts;
}

bool Session::needsChannels() {
    refreshModules();
    std::set<std::int32_t> outputs;  // a setup may name one twice
    for (const ListedModule& module : listed) {
        for (const ListedChannel& channel : module.channels) {
            outputs.insert(channel.output);
        }
    }
    return outputs.contains(-1) || outputs.size() != stationHost->getChannels().all().size();
}

void Session::matchChannels() {
    refreshModules();
    const std::vector<ListedModule> before = listed;
    pluginDriver->matchOutputs();
    pluginDriver->updateDevices();
    refreshModules();
    for (std::size_t module = 0; module < before.size(); ++module) {
        for (std::size_t i = 0; i < before[module].channels.size(); ++i) {
            const ListedChannel& channel = listed[module].channels[i];
            auto* const output = before[module].channels[i].output < 0
                                     ? findChannel(*stationHost, channel.output)
                                     : nullptr;
            if (output != nullptr) {
                output->setName(
                    fmt::format(L"{} 0x{:X}", listed[module].name, channel.interfaceId).c_str());
            }
        }
    }
}

Session::StreamOptions Session::getStreamOptions() const {
    StreamOptions options;
    if (const ElementRef stream = childOf(*document->getRoot(), streamName)) {
        for (const auto& value : stream->getContent().values) {
            options[toUtf8(value.key)] = toUtf8(value.text);
        }
    }
    return options;
}

void Session::setStreamOptions(const StreamOptions& options) {
    while (const ElementRef old = childOf(*document->getRoot(), streamName)) {
        document->getRoot()->RemoveChild(old.get());
    }
    if (options.empty()) {
        return;
    }
    const ElementRef stream = newChild(*document->getRoot(), streamName);
    for (const auto& [name, value] : options) {
        stream->setValue(StringHelper::ToWide(name), StringHelper::ToWide(value));
    }
}

std::vector<CountedRef<GnssDevice>> Session::clockDevices() {
    pluginDriver->updateDevices();
    refreshModules();
    const auto& devices = stationHost->gnssPlaces().getDevices();
    std::vector<CountedRef<GnssDevice>> found;
    for (const ListedModule& module : listed) {
        const auto place = static_cast<std::size_t>(module.clock);
        found.push_back(place < devices.size() ? devices[place] : CountedRef<GnssDevice>());
    }
    return found;
}

std::vector<ClockChoice> Session::getClocks() {
    std::vector<ClockChoice> choices;
    for (const auto& device : clockDevices()) {
        choices.push_back(device ? device->getChoice() : ClockChoice());
    }
    return choices;
}

void Session::chooseClock(std::size_t module, ClockChoice choice) {
    const auto device = clockDevices().at(module);
    if (!device || !device->getSyncModes().contains(choice.syncMode)) {
        throw PluginError(fmt::format("the clock of module {} has no such sync mode", module + 1));
    }
    device->choose(choice);
    pluginDriver->updateDevices();
}

}  // namespace station
