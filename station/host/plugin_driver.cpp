#include "station/host/plugin_driver.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/string_helper.h"
#include "station/host/read_channel_list.h"
#include "station/host/variant_array.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

/// Seconds by which the parts of a measurement overlap.
constexpr double partOverlap = 1.0;
/// Periodic calls that a drain takes at least: the first lets the clocks see the last position.
constexpr int leastPolls = 3;
constexpr std::uint32_t noLeader = 0xFFFFFFFFU;
/// What a leading clock's origin in the next part refers to: the time of the part before.
constexpr const wchar_t* ownSourceName = L"cmp-station";

std::vector<std::string> toUtf8(const std::vector<std::wstring>& texts) {
    std::vector<std::string> result;
    result.reserve(texts.size());
    for (const std::wstring& text : texts) {
        result.push_back(StringHelper::ToUtf8(text));
    }
    return result;
}

/// All entries that one of the operations has; none if it fails.
template <class Entry>
std::vector<Entry> readAll(CaptureStatistics& statistics,
                           HostResult (CaptureStatistics::*read)(Entry*, std::uint32_t*)) {
    std::uint32_t count = 0;
    if ((statistics.*read)(nullptr, &count) < 0) {
        return {};
    }
    std::vector<Entry> entries(count);
    if ((statistics.*read)(entries.data(), &count) < 0) {
        return {};
    }
    return entries;
}

}  // namespace

PluginDriver::PluginDriver(CountedRef<HostObject> pluginObject, CountedRef<StationHost> stationHost,
                           PluginDriverOptions driverOptions)
    : object(std::move(pluginObject)),
      host(std::move(stationHost)),
      options(std::move(driverOptions)) {}

PluginDriver::~PluginDriver() {
    if (isMeasuring()) {
        stopQuietly();
    }
    if (state == State::Ready) {
        try {
            plugin->onDisconnectChannels();
        } catch (...) {
            // It goes anyway.
        }
    }
}

void PluginDriver::requireConnection() const {
    if (state == State::New || state == State::Connecting) {
        throw PluginError("the plug-in isn't connected");
    }
}

template <typename Call>
void PluginDriver::call(const char* step, const Call& pluginCall) {
    std::string text;
    try {
        const HostResult code = pluginCall();
        if (code >= 0) {
            return;
        }
        text = fmt::format("it answered 0x{:08X}", static_cast<std::uint32_t>(code));
    } catch (...) {
        text = describeCurrentFailure();
    }
    if (isMeasuring()) {
        stopQuietly();
    }
    throw PluginError(fmt::format("the plug-in failed when it had to {}: {}", step, text));
}

void PluginDriver::sendEvent(const char* step, std::int32_t event, HostVariant* result) {
    HostVariant unused;
    call(step, [&] {
        return events->onEvent(event, HostVariant(), result == nullptr ? &unused : result);
    });
}

/// The way out of a measurement that works also where nothing else does.
void PluginDriver::stopQuietly() noexcept {
    state = State::Ready;
    host->clock().stop();
    try {
        HostVariant unused;
        events->onEvent(PluginEvent::startSetupRead, HostVariant(), &unused);
    } catch (...) {
        // The failure that led here is the one to tell.
    }
}

void PluginDriver::connect() {
    const char* const step = "connect to the station";
    if (state != State::New) {
        throw PluginError("a plug-in can be connected only once");
    }
    state = State::Connecting;
    call(step, [&] { return object.queryTo(plugin); });
    call(step, [&] { return object.queryTo(events); });
    object.queryTo(statistics);
    object.queryTo(selection);
    object.queryTo(modules);
    call(step, [&] { return plugin->onConnectHost(host.get()); });
    state = State::Ready;
}

void PluginDriver::persist(const char* step, std::int32_t event, HostDocument& document,
                           HostElement& element, bool saving) {
    requireConnection();
    const auto arguments = makeObject<VariantArray>();
    arguments->addObject(&document).addObject(&element).addBoolean(saving);
    if (event == PluginEvent::setup) {
        arguments->addBoolean(false);  // channels are made again, not kept
    }
    HostVariant result;
    call(step, [&] {
        const HostResult code = document.SetMode(toHostBool(saving));
        return code < 0 ? code : events->onEvent(event, arguments->asInput(), &result);
    });
}

void PluginDriver::loadSettings(HostDocument& document, HostElement& element) {
    persist("load its settings", PluginEvent::settings, document, element, false);
}

void PluginDriver::loadSetup(HostDocument& document, HostElement& element) {
    persist("load its setup", PluginEvent::setup, document, element, false);
    tellNewChannels();
}

void PluginDriver::saveSettings(HostDocument& document, HostElement& element) {
    persist("save its settings", PluginEvent::settings, document, element, true);
}

void PluginDriver::saveSetup(HostDocument& document, HostElement& element) {
    persist("save its setup", PluginEvent::setup, document, element, true);
}

void PluginDriver::clearSetup() {
    requireConnection();
    call("begin a new setup", [&] { return plugin->onClearSetup(); });
    tellNewChannels();
}

void PluginDriver::callModules(const char* step,
                               const std::function<HostResult(ModuleList&)>& action) {
    requireConnection();
    if (!modules) {
        throw PluginError("the plug-in doesn't show its list of modules");
    }
    call(step, [&] { return action(*modules); });
}

void PluginDriver::matchOutputs() {
    callModules("make its channels", [](ModuleList& list) { return list.matchOutputs(); });
    tellNewChannels();
}

void PluginDriver::tellNewChannels() {
    const char* const step = "look at the new channels";
    host->data().takeChannelsChanged();
    sendEvent(step, PluginEvent::channelsCameOrWent);
    sendEvent(step, PluginEvent::rebindInputs);
    sendEvent(step, PluginEvent::channelsChanged);
}

void PluginDriver::claimChannels(const char* step) {
    const auto read = makeObject<ReadChannelList>();
    sendObject(step, PluginEvent::claimChannels, static_cast<HostChannelList*>(read.get()));
}

void PluginDriver::sendObject(const char* step, std::int32_t event, HostObject* given) {
    requireConnection();
    HostVariant input;
    input.type = HostVariantType::Object;
    input.object = given;
    HostVariant unused;
    call(step, [&] { return events->onEvent(event, input, &unused); });
}

void PluginDriver::updateDevices() {
    host->gnssPlaces().clear();
    sendObject("set its clocks", PluginEvent::updateDevices,
               static_cast<HostGnssDeviceCollection*>(&host->gnssPlaces()));
}

void PluginDriver::showModules(HostObject& window) {
    sendObject("show its modules", PluginEvent::showModules, &window);
}

void PluginDriver::showChannels(HostObject& window) {
    sendObject("show its channels", PluginEvent::showChannels, &window);
}

void PluginDriver::closeModules() {
    requireConnection();
    sendEvent("close its window", PluginEvent::closeModules);
}

void PluginDriver::closeChannels() {
    requireConnection();
    sendEvent("close its window", PluginEvent::closeChannels);
}

void PluginDriver::start() {
    requireConnection();
    const char* const step = "start the measurement";
    if (host->data().takeChannelsChanged()) {
        tellNewChannels();
    }
    host->clock().reset();
    host->gnssDevices().setOwnSource({});
    call(step, [&] {
        host->channels().beginMeasurement();
        return plugin->onPrepareAcquisition();
    });
    claimChannels(step);
    call(step, [&] { return plugin->onStartAcquisition(); });
    sendEvent(step, PluginEvent::alignChannels);
    state = State::Running;  // from here on a failure has something to stop
    sendEvent("start the capture", PluginEvent::startCapture);
    droppedBefore = 0;
    awaitsLeader = hasLeader();
    if (!awaitsLeader) {
        host->clock().start();
    }
    host->data().setStart(options.utcNow());
    beginPart();
}

bool PluginDriver::hasLeader() {
    std::uint16_t answer = 0;
    call("tell whether it leads", [&] { return plugin->position32(&answer); });
    return answer != 0;
}

void PluginDriver::beginPart() {
    state = State::Running;
    samplesSeen = host->channels().getWritten();
    heldUntil = host->clock().getSeconds() + options.settleSeconds;
    sendEvent("start its clocks", PluginEvent::enableClocks);
}

void PluginDriver::poll() {
    if (!isMeasuring()) {
        return;
    }
    MasterClock& clock = host->clock();
    if (state == State::Running && !awaitsLeader && clock.getSeconds() >= heldUntil) {
        clock.movePosition();
    }
    sendEvent("deliver its data", PluginEvent::getData);
    if (awaitsLeader && state == State::Running) {
        beginWithLeader();
    }
    const std::uint64_t samples = host->channels().getWritten();
    if (samples != samplesSeen) {
        samplesSeen = samples;
        newestArrival = clock.getSeconds();
    }
    if (state == State::Ending) {
        leader = leadingSeconds();
        ++pollsSinceEnd;
    }
}

/// The number of samples is too coarse for the beginning of a time: the clock itself is asked for
/// it where the plug-in can tell.
void PluginDriver::beginWithLeader() {
    double second = leadingSeconds();
    if (std::isinf(second)) {
        return;
    }
    for (const ClockStatistics& clock : getClocks()) {
        if (clock.isLeading && clock.isPlaced) {
            second = clock.elapsed;
            break;
        }
    }
    awaitsLeader = false;
    droppedBefore = countDroppedFrames();
    host->clock().start(second);
    heldUntil = second + options.settleSeconds;
}

double PluginDriver::leadingSeconds() {
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    call("tell its time", [&] { return plugin->position33(&low, &high); });
    if (low == noLeader && high == noLeader) {
        return std::numeric_limits<double>::infinity();
    }
    const std::uint64_t samples = (std::uint64_t{high} << 32U) + low;
    return static_cast<double>(samples) / host->clock().getSampleRate();
}

std::vector<ChannelStatistics> PluginDriver::getChannels() const {
    return statistics ? readAll(*statistics, &CaptureStatistics::getChannels)
                      : std::vector<ChannelStatistics>();
}

std::vector<ClockStatistics> PluginDriver::getClocks() const {
    return statistics ? readAll(*statistics, &CaptureStatistics::getClocks)
                      : std::vector<ClockStatistics>();
}

void PluginDriver::requireSelection() const {
    requireConnection();
    if (!selection) {
        throw PluginError("the plug-in captures on all interfaces and can't select some");
    }
}

std::vector<std::string> PluginDriver::getInterfaces() {
    requireSelection();
    std::vector<std::wstring> found;
    call("list the interfaces", [&] { return selection->getInterfaces(&found); });
    return toUtf8(found);
}

std::vector<std::string> PluginDriver::takeInterfaceMessages() {
    std::vector<std::wstring> found;
    return selection && selection->takeMessages(&found) >= 0 ? toUtf8(found)
                                                             : std::vector<std::string>();
}

void PluginDriver::selectInterfaces(const std::vector<std::string>& names) {
    requireSelection();
    std::vector<std::wstring> wide;
    std::vector<const wchar_t*> given;
    wide.reserve(names.size());
    given.reserve(names.size());
    for (const std::string& name : names) {
        wide.push_back(StringHelper::ToWide(name));
    }
    for (const std::wstring& name : wide) {
        given.push_back(name.c_str());
    }
    call("select the interfaces", [&] {
        return selection->selectInterfaces(given.data(), static_cast<std::uint32_t>(given.size()));
    });
}

std::uint64_t PluginDriver::getDroppedFrames() const {
    // While the leader is awaited the measurement hasn't begun.
    return awaitsLeader ? 0 : countDroppedFrames() - droppedBefore;
}

std::uint64_t PluginDriver::countDroppedFrames() const {
    std::uint64_t frames = 0;
    if (statistics && statistics->getDroppedFrames(&frames) < 0) {
        frames = 0;
    }
    return frames;
}

void PluginDriver::endPart() {
    if (state != State::Running) {
        return;
    }
    HostVariant delay;
    sendEvent("tell its delay", PluginEvent::getRequiredDelay, &delay);
    const float seconds = delay.type == HostVariantType::Float ? delay.float32 : 0.0F;
    leastDrain =
        std::clamp(static_cast<double>(seconds), options.quietSeconds, options.longestDrainSeconds);
    host->clock().movePosition();
    endTime = host->clock().getSeconds();
    newestArrival = endTime;
    leader = 0.0;
    pollsSinceEnd = 0;
    state = State::Ending;
}

bool PluginDriver::isDrained() const {
    if (state != State::Ending) {
        return !isMeasuring();
    }
    const double now = host->clock().getSeconds();
    const double end = host->clock().getPositionSeconds();
    const bool quiet = now - newestArrival >= options.quietSeconds && pollsSinceEnd >= leastPolls;
    const bool complete = now - endTime >= leastDrain && leader >= end + leastDrain;
    return awaitsLeader || (quiet && complete) || now - endTime >= options.longestDrainSeconds;
}

void PluginDriver::startNextPart() {
    MasterClock& clock = host->clock();
    StationData& data = host->data();
    double second = std::max(clock.getPositionSeconds() - partOverlap, 0.0);
    if (hasLeader()) {
        second = std::floor(second);  // a leading clock puts time 0 on a whole second
    }
    const auto start = data.getStart() + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                             std::chrono::duration<double>(second));
    clock.startNextPart(second);
    data.setStart(start);
    host->gnssDevices().setOwnSource(ownSourceName);
    const char* const step = "start the next part of the measurement";
    call(step, [&] { return plugin->onStartAcquisition(); });
    sendEvent(step, PluginEvent::alignChannels);
    beginPart();
}

void PluginDriver::stop() {
    if (!isMeasuring()) {
        return;
    }
    host->clock().stop();
    state = State::Ready;
    sendEvent("stop the capture", PluginEvent::startSetupRead);
}

}  // namespace station
