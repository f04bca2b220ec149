#include "station/gui/workspace.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "core/string_helper.h"
#include "station/permission.h"
#include "station/serve/bus_address.h"
#include "station/session/bus_load.h"
#include "station/signals/channel_decoders.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

HostObject& asHostWindow(QtWindow& window) {
    return static_cast<Kestrova::Tessel::IWindow&>(window.window());
}

}  // namespace

/// By channel of the summary, and what the user must know of the files.
struct Workspace::ReadDecoders {
    LiveFeed::Decoders byChannel;
    std::vector<std::string> texts;
};

Workspace::Workspace(WorkspaceOptions workspaceOptions) : options(std::move(workspaceOptions)) {
    begin();
}

Workspace::~Workspace() {
    if (measurement) {
        finish();
    }
}

Workspace::Setup::~Setup() {
    if (!session) {
        return;
    }
    try {
        session->getDriver().closeModules();
        session->getDriver().closeChannels();
    } catch (const PluginError&) {
        // They go anyway.
    }
}

std::unique_ptr<Workspace::Setup> Workspace::makeSetup(const std::filesystem::path& path) const {
    const auto onFailure = [report = options.onMessage](const HandlerFailure& failure) {
        report(failure.text());
    };
    auto fresh = std::make_unique<Setup>();
    fresh->modules = std::make_unique<QtWindow>(onFailure);
    fresh->channels = std::make_unique<QtWindow>(onFailure);
    fresh->session = std::make_unique<Session>(
        SessionOptions{options.plugin, options.sampleRate, options.onMessage});
    if (!path.empty()) {
        fresh->session->open(SetupFile(path));
        fresh->session->report(SetupFile(path), fresh->session->findLosses());
    }
    PluginDriver& driver = fresh->session->getDriver();
    driver.showModules(asHostWindow(*fresh->modules));
    driver.showChannels(asHostWindow(*fresh->channels));
    return fresh;
}

/// Where that isn't allowed, modules are known in a measurement alone.
void Workspace::listen() const {
    if (!options.listens) {
        return;
    }
    try {
        checkCapturePermission("cmp-station-gui");
        getSession().getDriver().listen();
    } catch (const std::exception& failure) {
        options.onMessage(failure.what());
    }
}

void Workspace::take(std::unique_ptr<Setup> fresh, SharedSetupFile itsFile) {
    setup = std::move(fresh);
    file = std::move(itsFile);
    savedFingerprint = getFingerprint();
    clocksChosen = false;
    feed.begin(Summary());
    isReadingStale = true;
    summary = Summary();
    coverage.begin({});
    lost = false;
    listen();
}

void Workspace::begin() {
    take(makeSetup({}), {});
}

void Workspace::open(const std::filesystem::path& path) {
    SharedSetupFile opened(path);
    take(makeSetup(path), std::move(opened));
}

bool Workspace::save(const std::filesystem::path& path) {
    matchChannels();
    if (!file.save(getSession(), path)) {
        return false;
    }
    savedFingerprint = getFingerprint();
    clocksChosen = false;
    return true;
}

/// What the user can change in the windows; the document also holds what the modules report.
std::string Workspace::getFingerprint() const {
    std::string text;
    for (const Module& module : getSession().getModules()) {
        text += fmt::format("{}\n{}\n{}\n", module.type, module.name, module.configId);
        for (const Channel& channel : module.channels) {
            text += fmt::format("{}\n{}\n{}\n{} {}\n{}\n", channel.name, channel.isUsed,
                                channel.color, channel.bitRates.nominal, channel.bitRates.data,
                                fmt::join(channel.databases, "\n"));
        }
    }
    return text;
}

bool Workspace::isModified() {
    return clocksChosen || getFingerprint() != savedFingerprint;
}

void Workspace::chooseClock(std::size_t module, ClockChoice choice) {
    getSession().chooseClock(module, choice);
    clocksChosen = true;
}

std::vector<Module> Workspace::getModules() {
    return isMeasuring() ? summary.modules : getSession().getModules();
}

void Workspace::chooseDatabases(std::size_t module, std::size_t channel,
                                const std::vector<DatabaseFile>& files) {
    const Channel chosen = getSession().getModules().at(module).channels.at(channel);
    std::vector<std::wstring> wide;
    for (const auto& [path, bus] : files) {
        if ((bus == BusType::Lin) != (chosen.busType == "LIN")) {
            throw UserError(fmt::format("{} is no database of {}, the bus of {}", path,
                                        chosen.busType, chosen.name));
        }
        wide.push_back(StringHelper::ToWide(path));
    }
    getSession().findOutput(chosen).setDatabases(wide);
}

void Workspace::chooseBitRates(std::size_t module, std::size_t channel, const BitRates& rates) {
    const Channel chosen = getSession().getModules().at(module).channels.at(channel);
    checkBitRates(rates, chosen);
    getSession().findOutput(chosen).setBitRates(rates);
}

void Workspace::readDecoders() {
    struct Wanted {
        ChannelDescription channel;
        std::vector<std::string> paths = {};
    };
    std::vector<Wanted> wanted;
    bool hasAny = false;
    for (const ChannelSummary& channel : summary.channels) {
        wanted.push_back({{channel.name, channel.bus}, summary.findDatabases(channel, getPath())});
        hasAny = hasAny || !wanted.back().paths.empty();
    }
    isReadingStale = reading.isRunning();
    if (!hasAny) {
        return;
    }
    feed.awaitDecoders();
    if (isReadingStale) {
        return;  // begins when that is done
    }
    decoders = std::make_shared<ReadDecoders>();
    reading.start([wanted, result = decoders](const std::atomic<bool>& isStopped) {
        ChannelDecoders all;
        for (const Wanted& entry : wanted) {
            try {
                for (const std::string& path : entry.paths) {
                    if (isStopped) {
                        return QString();
                    }
                    all.load(path);
                }
                result->byChannel.push_back(all.find(entry.channel, entry.paths));
            } catch (const std::exception& error) {
                result->texts.emplace_back(error.what());
                result->byChannel.emplace_back();
            }
        }
        std::ranges::move(all.takeNotices(), std::back_inserter(result->texts));
        return QString();
    });
}

void Workspace::takeDecoders() {
    if (!reading.takeResult()) {
        return;
    }
    const auto read = std::exchange(decoders, nullptr);
    if (!isReadingStale) {
        feed.setDecoders(read->byChannel);
        reportAll(read->texts);
    } else if (feed.isAwaitingDecoders()) {
        readDecoders();
    }
}

void Workspace::addUnlisted(const Module& module) {
    if (isMeasuring()) {
        throw UserError(lockReason);
    }
    getSession().addModule(module);
    // They show what was added in them alone.
    getSession().getDriver().showModules(asHostWindow(*setup->modules));
    getSession().getDriver().showChannels(asHostWindow(*setup->channels));
}

/// The plug-in has no channels for a module that was added or got another type until they are made,
/// which can't be in a measurement. Its window keeps the rows that it was made with, and with them
/// the channels of modules that are gone: these go when it shows others.
void Workspace::matchChannels() {
    if (isMeasuring()) {
        return;
    }
    PluginDriver& driver = getSession().getDriver();
    if (getSession().needsChannels()) {
        getSession().matchChannels();
        driver.showChannels(asHostWindow(*setup->channels));
        if (getSession().needsChannels()) {
            getSession().matchChannels();
        }
    } else if (getSession().getHost().takeDevicesChanged()) {
        driver.updateDevices();
    }
}

void Workspace::reportAll(const std::vector<std::string>& texts) const {
    for (const std::string& text : texts) {
        options.onMessage(text);
    }
}

/// Changes in a measurement would silence what is recorded, or have no channels to go to.
void Workspace::setLocked(bool isLocked) {
    const QString reason = isLocked ? lockReason : "";
    setup->modules->setLocked(reason);
    setup->channels->setLocked(reason);
}

std::vector<std::string> Workspace::findNotRecorded() const {
    std::vector<std::string> texts;
    const auto linChannels =
        std::count_if(summary.channels.begin(), summary.channels.end(),
                      [](const auto& channel) { return channel.bus == BusType::Lin; });
    if (linChannels > 0) {
        for (const std::string& recording : recordings->thatRefuse(BusType::Lin)) {
            texts.push_back(fmt::format("{} can't hold LIN: {} channels aren't recorded in it",
                                        recording, linChannels));
        }
    }
    return texts;
}

void Workspace::reportGaps() const {
    reportAll(coverage.getGaps());
    if (summary.channels.empty()) {
        options.onMessage(std::string(noChannelIsUsed) +
                          "Tick \"Used\" in the window of channels.");
    }
}

void Workspace::start(const std::filesystem::path& recording) {
    checkCapturePermission("cmp-station-gui");
    matchChannels();
    auto files = std::make_shared<RecordingSet>();
    if (!recording.empty()) {
        PartRules rules;
        rules.session = newSession({recording.string()}, rules);
        files->open(recording.string(), false, rules);
    }
    std::unique_ptr<BusServer> readers;
    if (!options.serve.empty()) {
        BusServerSettings settings;
        settings.address = parseBusAddress(options.serve);
        readers = std::make_unique<BusServer>(settings);
    }
    auto fresh = std::make_unique<Measurement>(getSession(), files);
    summary = fresh->summarize();
    if (readers) {
        readers->begin(fresh->summarize());
        fresh->addListener(*readers);
    }
    fresh->start();
    fresh->addListener(feed);
    recordings = std::move(files);
    measurement = std::move(fresh);
    server = std::move(readers);
    ending = false;
    lost = false;
    setLocked(true);
    summary = measurement->summarize();
    feed.begin(summary);
    readDecoders();
    coverage.begin(findNotRecorded());
    reportGaps();
    if (server) {
        options.onMessage(describeBuses(server->summarize()));
    }
}

void Workspace::requestStop(bool leavesStalledDisk) {
    if (measurement) {
        ending = true;
        if (leavesStalledDisk) {
            measurement->leaveStalledDisk();
        }
        measurement->requestStop();
    }
}

const Summary& Workspace::summarize() {
    if (measurement) {
        summary = measurement->summarize();
        PluginDriver& driver = getSession().getDriver();
        if (driver.isMeasuring()) {
            for (const auto& [text, module] : coverage.look(summary, driver.getChannels())) {
                options.onNews(text, "silence of " + module);
            }
        } else {
            coverage.note(summary);
        }
        feed.follow(summary);
    }
    return summary;
}

std::uint64_t Workspace::countMissing() const {
    std::uint64_t most = 0;
    for (const RecordingSummary& recording : summary.recordings) {
        std::uint64_t missing = 0;
        const std::size_t count = std::min(recording.channels.size(), summary.channels.size());
        for (std::size_t i = 0; i < count; ++i) {
            const RecordingSummary::Channel& channel = recording.channels[i];
            const std::uint64_t frames = summary.channels[i].frames;
            missing +=
                channel.isHeld ? frames - std::min(frames, channel.records + channel.lost) : 0;
        }
        most = std::max(most, missing);
    }
    return most;
}

void Workspace::tick(Measurement::Clock::time_point now) {
    constexpr auto lookPeriod = std::chrono::milliseconds(200);
    takeDecoders();
    try {
        if (measurement) {
            reportAll(measurement->poll(now));
            if (server) {
                reportAll(server->takeTexts());
            }
            lost = lost || measurement->hasLost();
        } else if (now >= nextLook) {
            nextLook = now + lookPeriod;
            matchChannels();
        }
    } catch (const std::exception& failure) {
        options.onMessage(failure.what());
        nextLook = now + std::chrono::seconds(1);
    }
    if (measurement && measurement->isOver()) {
        finish();
    }
}

void Workspace::finish() {
    lost = lost || measurement->hasLost();
    summarize();
    measurement.reset();
    if (server) {
        server->end();
        summary.serve = server->summarize();
        reportAll(server->takeTexts());
        server.reset();
    }
    recordings.reset();
    ending = false;
    setLocked(false);
}

}  // namespace station
