#include "station/gui/workspace.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "station/permission.h"

namespace station {
namespace {

HostObject& asHostWindow(QtWindow& window) {
    return static_cast<Kestrova::Tessel::IWindow&>(window.window());
}

}  // namespace

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
        session->driver().closeModules();
        session->driver().closeChannels();
    } catch (const PluginError&) {
        // They go anyway.
    }
}

std::unique_ptr<Workspace::Setup> Workspace::makeSetup(const std::filesystem::path& file) const {
    const auto onFailure = [tell = options.onMessage](const HandlerFailure& failure) {
        tell(failure.text());
    };
    auto fresh = std::make_unique<Setup>();
    fresh->modules = std::make_unique<QtWindow>(onFailure);
    fresh->channels = std::make_unique<QtWindow>(onFailure);
    fresh->session = std::make_unique<Session>(
        SessionOptions{options.plugin, options.sampleRate, options.onMessage});
    if (!file.empty()) {
        fresh->session->open(SetupFile(file));
    }
    PluginDriver& driver = fresh->session->driver();
    driver.showModules(asHostWindow(*fresh->modules));
    driver.showChannels(asHostWindow(*fresh->channels));
    return fresh;
}

void Workspace::take(std::unique_ptr<Setup> fresh, std::filesystem::path file) {
    setup = std::move(fresh);
    path = std::move(file);
    savedFingerprint = fingerprint();
    clocksChosen = false;
    feed.begin(Summary());
    summary = Summary();
    lost = false;
}

void Workspace::begin() {
    take(makeSetup({}), {});
}

void Workspace::open(const std::filesystem::path& file) {
    take(makeSetup(file), file);
}

void Workspace::save(const std::filesystem::path& file) {
    matchChannels();
    session().save(SetupFile(file));
    path = file;
    savedFingerprint = fingerprint();
    clocksChosen = false;
}

/// What the user can change in the windows; the document also holds what the modules tell.
std::string Workspace::fingerprint() const {
    std::string text;
    for (const Module& module : session().getModules()) {
        text += fmt::format("{}\n{}\n{}\n", module.type, module.name, module.configId);
        for (const Channel& channel : module.channels) {
            text += fmt::format("{}\n{}\n{}\n", channel.name, channel.isUsed, channel.color);
        }
    }
    return text;
}

bool Workspace::isModified() {
    return clocksChosen || fingerprint() != savedFingerprint;
}

void Workspace::chooseClock(std::size_t module, ClockChoice choice) {
    session().chooseClock(module, choice);
    clocksChosen = true;
}

/// The plug-in has no channels for a module that was added or got another type until they are made,
/// which can't be in a measurement. Its window keeps the rows that it was made with.
void Workspace::matchChannels() {
    if (isMeasuring()) {
        return;
    }
    PluginDriver& driver = session().driver();
    if (session().needsChannels()) {
        session().matchChannels();
        driver.showChannels(asHostWindow(*setup->channels));
    } else if (session().host().takeDevicesChanged()) {
        driver.updateDevices();
    }
}

void Workspace::tellAll(const std::vector<std::string>& texts) const {
    for (const std::string& text : texts) {
        options.onMessage(text);
    }
}

void Workspace::tellLeftOut() const {
    std::size_t linChannels = 0;
    for (const ChannelSummary& channel : summary.channels) {
        linChannels += channel.bus == BusType::Lin ? 1 : 0;
    }
    for (const std::string& recording : recordings->thatRefuse(BusType::Lin)) {
        if (linChannels > 0) {
            options.onMessage(fmt::format("{} can't hold LIN: {} channels aren't recorded in it",
                                          recording, linChannels));
        }
    }
    if (summary.channels.empty()) {
        options.onMessage(
            "No channel is used: nothing will be measured. Tick \"Used\" in the "
            "window of channels.");
    }
}

void Workspace::start(const std::filesystem::path& recording) {
    checkCapturePermission("cmp-station-gui");
    matchChannels();
    auto files = std::make_shared<RecordingSet>();
    if (!recording.empty()) {
        files->open(recording.string());
    }
    auto fresh = std::make_unique<Measurement>(session(), files);
    fresh->start();
    fresh->setListener(&feed);
    recordings = std::move(files);
    measurement = std::move(fresh);
    ending = false;
    lost = false;
    feed.begin(summarize());
    tellLeftOut();
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
        feed.setStart(summary.startTime);
    }
    return summary;
}

void Workspace::tick(Measurement::Clock::time_point now) {
    constexpr auto lookPeriod = std::chrono::milliseconds(200);
    try {
        if (measurement) {
            tellAll(measurement->poll(now));
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
    recordings.reset();
    ending = false;
}

}  // namespace station
