#include "station/host/plugin_driver.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/kvrt_exception.h"
#include "core/string_helper.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

/// Seconds by which the parts of a measurement overlap.
constexpr double partOverlap = 1.0;
/// How long the position stays 0 at the beginning of a part. All that comes in waits so long, and
/// the plug-in's clocks learn the modules' times before they have to judge a message.
constexpr double settleSeconds = 0.2;
constexpr double longestDrainSeconds = 5.0;
/// Periodic calls that a drain takes at least: the first lets the clocks see the last position.
constexpr int leastPolls = 3;
constexpr std::uint32_t noLeader = 0xFFFFFFFFU;
/// What a leading clock's origin in the next part refers to: the time of the part before.
constexpr const wchar_t* ownSourceName = L"cmp-station";

std::vector<std::string> toUtf8(const std::vector<std::wstring>& texts) {
    std::vector<std::string> result(texts.size());
    std::transform(texts.begin(), texts.end(), result.begin(),
                   [](const std::wstring& text) { return StringHelper::ToUtf8(text); });
    return result;
}

/// The arguments of an event as an array of variants, counted from 0. Keeps the objects in it.
class Arguments final : public Counted<HostVariantArray> {
  public:
    explicit Arguments(std::vector<HostVariant> values) : elements(std::move(values)) {
        for (const HostVariant& element : elements) {
            if (element.type == HostVariantType::Object) {
                objects.emplace_back(element.object);
            }
        }
    }

    HostResult getBounds(std::int32_t* first, std::int32_t* last) override {
        *first = 0;
        return give(last, static_cast<std::int32_t>(elements.size()) - 1);
    }
    HostResult getElement(std::int32_t index, HostVariant* element) override {
        const auto* const found = itemAt(elements, index);
        return found != nullptr
                   ? give(element, *found)
                   : fail(HostCode::invalidArgument, "there is no such element in the array");
    }
    HostResult copy(HostVariantArray** result) override {
        return guarded([&] { return handOver(makeObject<Arguments>(elements), result); });
    }

  private:
    const std::vector<HostVariant> elements;
    std::vector<CountedRef<HostObject>> objects;
};

/// Where the plug-in enters, on event 118, the channels that it reads in the coming measurement,
/// when it also claims those that it fills. This host lets it read any.
class ReadChannels final : public Counted<HostChannelList> {
  public:
    HostResult addChannel(HostChannel* channel) override {
        return channel != nullptr ? HostCode::success
                                  : fail(HostCode::invalidArgument, "there is no channel to enter");
    }
};

std::string toText(const HostCallException& failure) {
    std::wstring description;
    if (const auto& info = failure.getErrorInfo()) {
        info->getDescription(&description);
    }
    const std::string text = StringHelper::ToUtf8(description);
    return fmt::format("a call of the host failed with code 0x{:08X}{}{}",
                       static_cast<std::uint32_t>(failure.getCode()), text.empty() ? "" : ": ",
                       text);
}

/// What the exception says that is being handled, with its code if it has one: one that a plug-in
/// lets through to its host, or any other.
std::string describeCurrentFailure() {
    try {
        throw;
    } catch (const HostCallException& failure) {
        return toText(failure);
    } catch (const HostArrayException& failure) {
        return fmt::format("an array of the host isn't as it must be, code 0x{:08X}",
                           static_cast<std::uint32_t>(failure.getCode()));
    } catch (const Kestrova::RT::Core::KvrtException& failure) {
        return fmt::format("{} (code 0x{:08X})", failure.what(), failure.getCode());
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (...) {
        return "an exception of an unknown kind";
    }
}

}  // namespace

PluginDriver::PluginDriver(CountedRef<HostObject> pluginObject, CountedRef<StationHost> stationHost,
                           std::function<SystemClock::time_point()> utcClock)
    : object(std::move(pluginObject)), host(std::move(stationHost)), utcNow(std::move(utcClock)) {}

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

HostVariant PluginDriver::sendEvent(const char* step, std::int32_t event,
                                    const HostVariant& input) {
    requireConnection();
    HostVariant result;
    call(step, [&] { return events->onEvent(event, input, &result); });
    return result;
}

void PluginDriver::sendObject(const char* step, std::int32_t event, HostObject* given) {
    sendEvent(step, event, {.type = HostVariantType::Object, .object = given});
}

/// The way out of a measurement that works also where nothing else does.
void PluginDriver::stopQuietly() noexcept {
    state = State::Ready;
    host->getClock().stop();
    try {
        HostVariant unused;
        events->onEvent(PluginEvent::startSetupRead, HostVariant(), &unused);
    } catch (...) {
        // The failure that led here is the one to report.
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
    object.queryTo(traffic);
    object.queryTo(reception);
    object.queryTo(selection);
    object.queryTo(frames);
    object.queryTo(modules);
    call(step, [&] { return plugin->onConnectHost(host.get()); });
    state = State::Ready;
}

void PluginDriver::persist(const char* step, std::int32_t event, HostDocument& document,
                           HostElement& element, bool saving) {
    requireConnection();
    call(step, [&] { return document.SetMode(toHostBool(saving)); });
    std::vector<HostVariant> arguments = {
        {.type = HostVariantType::Object, .object = &document},
        {.type = HostVariantType::Object, .object = &element},
        {.type = HostVariantType::Boolean, .boolean = toHostBool(saving)},
    };
    if (event == PluginEvent::setup) {  // channels are made again, not kept
        arguments.push_back({.type = HostVariantType::Boolean, .boolean = hostFalse});
    }
    const auto array = makeObject<Arguments>(std::move(arguments));
    sendEvent(step, event, {.type = HostVariantType::VariantArray, .variants = array.get()});
}

void PluginDriver::loadSetup(HostDocument& document, HostElement& element) {
    persist("load its setup", PluginEvent::setup, document, element, false);
    announceNewChannels();
}

void PluginDriver::clearSetup() {
    requireConnection();
    call("begin a new setup", [&] { return plugin->onClearSetup(); });
    announceNewChannels();
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
    announceNewChannels();
}

void PluginDriver::announceNewChannels() {
    const char* const step = "look at the new channels";
    host->data().takeChannelsChanged();
    sendEvent(step, PluginEvent::channelsCameOrWent);
    sendEvent(step, PluginEvent::rebindInputs);
    sendEvent(step, PluginEvent::channelsChanged);
}

void PluginDriver::updateDevices() {
    host->gnssPlaces().clear();
    sendObject("set its clocks", PluginEvent::updateDevices,
               static_cast<HostGnssDeviceCollection*>(&host->gnssPlaces()));
}

/// The interfaces are opened as for a measurement, and read for the modules' status alone.
void PluginDriver::listen() {
    const char* const step = "listen to its modules";
    sendEvent(step, PluginEvent::startCapture);
    sendEvent(step, PluginEvent::startSetupRead);
}

void PluginDriver::start() {
    requireConnection();
    const char* const step = "start the measurement";
    if (host->data().takeChannelsChanged()) {
        announceNewChannels();
    }
    host->getClock().reset();
    host->getGnssDevices().setOwnSource({});
    call(step, [&] {
        host->getChannels().beginMeasurement();
        return plugin->onPrepareAcquisition();
    });
    const auto read = makeObject<ReadChannels>();
    sendObject(step, PluginEvent::claimChannels, static_cast<HostChannelList*>(read.get()));
    call(step, [&] { return plugin->onStartAcquisition(); });
    sendEvent(step, PluginEvent::alignChannels);
    state = State::Running;  // from here on a failure has something to stop
    sendEvent("start the capture", PluginEvent::startCapture);
    droppedBefore = 0;
    awaitsLeader = hasLeader();
    if (!awaitsLeader) {
        host->getClock().start();
    }
    host->data().setStart(utcNow());
    beginPart();
}

bool PluginDriver::hasLeader() {
    std::uint16_t answer = 0;
    call("say whether it leads", [&] { return plugin->position32(&answer); });
    return answer != 0;
}

void PluginDriver::beginPart() {
    state = State::Running;
    samplesSeen = host->getChannels().getWritten();
    heldUntil = host->getClock().getSeconds() + settleSeconds;
    sendEvent("start its clocks", PluginEvent::enableClocks);
}

void PluginDriver::poll() {
    if (!isMeasuring()) {
        return;
    }
    MasterClock& clock = host->getClock();
    if (state == State::Running && !awaitsLeader && clock.getSeconds() >= heldUntil) {
        clock.movePosition();
    }
    sendEvent("deliver its data", PluginEvent::getData);
    if (awaitsLeader && state == State::Running) {
        beginWithLeader();
    }
    const std::uint64_t samples = host->getChannels().getWritten();
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
/// it where the plug-in knows.
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
    host->getClock().start(second);
    heldUntil = second + settleSeconds;
}

double PluginDriver::leadingSeconds() {
    std::uint32_t low = 0;
    std::uint32_t high = 0;
    call("say its time", [&] { return plugin->position33(&low, &high); });
    if (low == noLeader && high == noLeader) {
        return std::numeric_limits<double>::infinity();
    }
    const std::uint64_t samples = (std::uint64_t{high} << 32U) + low;
    return static_cast<double>(samples) / host->getClock().getSampleRate();
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

std::vector<InterfaceMessage> PluginDriver::takeInterfaceMessages() {
    std::vector<InterfaceMessage> found;
    if (selection) {
        selection->takeMessages(&found);
    }
    return found;
}

void PluginDriver::selectInterfaces(const std::vector<std::string>& names) {
    requireSelection();
    std::vector<std::wstring> wide(names.size());
    std::transform(names.begin(), names.end(), wide.begin(), StringHelper::ToWide);
    std::vector<const wchar_t*> given(wide.size());
    std::transform(wide.begin(), wide.end(), given.begin(),
                   [](const std::wstring& name) { return name.c_str(); });
    call("select the interfaces", [&] {
        return selection->selectInterfaces(given.data(), static_cast<std::uint32_t>(given.size()));
    });
}

std::uint64_t PluginDriver::getDroppedFrames() const {
    // While the leader is awaited the measurement hasn't begun.
    return awaitsLeader ? 0 : countDroppedFrames() - droppedBefore;
}

PluginDriver::Traffic PluginDriver::getTraffic() const {
    Traffic found;
    if (traffic) {
        if (!reception || reception->getReceived(&found.interfaces) != HostCode::success) {
            std::vector<InterfaceStatistics> plain;
            traffic->getInterfaces(&plain);
            for (InterfaceStatistics& each : plain) {
                found.interfaces.push_back({std::move(each)});
            }
        }
        traffic->getMessages(&found.messages);
        traffic->getModules(&found.modules);
        if (reception) {
            reception->getSenders(&found.senders);
        }
    }
    return found;
}

void PluginDriver::setFrameSink(FrameSink* sink) {
    requireConnection();
    if (!frames) {
        throw PluginError("the plug-in doesn't give the frames that it reads");
    }
    call("take a sink for frames", [&] { return frames->setSink(sink); });
}

std::vector<std::string> PluginDriver::getFrameSources() {
    requireConnection();
    std::vector<std::wstring> wide;
    if (frames) {
        call("name its interfaces", [&] { return frames->getSources(&wide); });
    }
    return toUtf8(wide);
}

std::uint64_t PluginDriver::countDroppedFrames() const {
    std::uint64_t dropped = 0;
    if (statistics && statistics->getDroppedFrames(&dropped) < 0) {
        dropped = 0;
    }
    return dropped;
}

void PluginDriver::endPart() {
    if (state != State::Running) {
        return;
    }
    const HostVariant delay = sendEvent("say its delay", PluginEvent::getRequiredDelay);
    const float seconds = delay.type == HostVariantType::Float ? delay.float32 : 0.0F;
    leastDrain = std::clamp(static_cast<double>(seconds), quietSeconds, longestDrainSeconds);
    host->getClock().movePosition();
    endTime = host->getClock().getSeconds();
    newestArrival = endTime;
    leader = 0.0;
    pollsSinceEnd = 0;
    state = State::Ending;
}

bool PluginDriver::isDrained() const {
    if (state != State::Ending) {
        return !isMeasuring();
    }
    const double now = host->getClock().getSeconds();
    const double end = host->getClock().getPositionSeconds();
    const bool quiet = now - newestArrival >= quietSeconds && pollsSinceEnd >= leastPolls;
    const bool complete = now - endTime >= leastDrain && leader >= end + leastDrain;
    return awaitsLeader || (quiet && complete) || now - endTime >= longestDrainSeconds;
}

void PluginDriver::startNextPart() {
    MasterClock& clock = host->getClock();
    StationData& data = host->data();
    double second = std::max(clock.getPositionSeconds() - partOverlap, 0.0);
    if (hasLeader()) {
        second = std::floor(second);  // a leading clock puts time 0 on a whole second
    }
    const auto start = data.getStart() + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                             std::chrono::duration<double>(second));
    clock.startNextPart(second);
    data.setStart(start);
    host->getGnssDevices().setOwnSource(ownSourceName);
    const char* const step = "start the next part of the measurement";
    call(step, [&] { return plugin->onStartAcquisition(); });
    sendEvent(step, PluginEvent::alignChannels);
    beginPart();
}

void PluginDriver::stop() {
    if (!isMeasuring()) {
        return;
    }
    host->getClock().stop();
    state = State::Ready;
    sendEvent("stop the capture", PluginEvent::startSetupRead);
}

}  // namespace station
