#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/host_document.h"
#include "host/module_list.h"
#include "host/plugin.h"
#include "station/errors.h"
#include "station/host/station_host.h"

namespace station {

/// Drives one plug-in object through its life, in the one order that loses nothing:
///
///     connect
///     loadSettings, loadSetup, updateDevices        (or clearSetup)
///     listen                                        (or not)
///     start
///         poll ... poll                             every 20 ms or so
///         endPart, poll ... until isDrained
///     stop, or startNextPart and on with poll
///     saveSettings, saveSetup
///
/// **Nothing lost at the start.** Time 0 is when event 105 has returned: the interfaces are open.
/// Where a module's clock leads, time 0 is when that clock says so, however late the module begins
/// to speak. The position stays 0 for a while, which makes everything wait.
///
/// **Nothing lost at the end.** `endPart` moves the position for the last time. What was stamped up
/// to there is still under way: in the network, in the plug-in's queues, behind a module's clock.
/// So the periodic calls go on, with the time running, until the delay that the clocks ask for is
/// over, a leading clock has reached the end too, and nothing new comes. What was stamped later
/// waits and isn't delivered. Only then may event 130 throw the queues away.
///
/// **Nothing lost between parts.** The capture runs on, what is stamped behind the end waits in the
/// plug-in, and time 0 of the next part lies a second before that end, so that no rounding of the
/// clocks, which begin again, makes a waiting message too old.
///
/// Every failure of the plug-in comes out as `PluginError`. In a measurement it has then been
/// stopped as well as it goes; what is in the channels can still be read. A call without a
/// connected plug-in is a `PluginError` too.
///
/// Called on the host's thread.
class PluginDriver {
  public:
    using SystemClock = std::chrono::system_clock;

    /// How long nothing new must come in before what was under way at the end counts as drained.
    static constexpr double quietSeconds = 0.1;

    PluginDriver(CountedRef<HostObject> pluginObject, CountedRef<StationHost> stationHost,
                 std::function<SystemClock::time_point()> utcClock = SystemClock::now);
    /// Stops what is running and lets the plug-in go; failures are reported to nobody any more.
    ~PluginDriver();
    PluginDriver(const PluginDriver&) = delete;
    PluginDriver& operator=(const PluginDriver&) = delete;

    void connect();

    /// The clocks and the modules; to be loaded before the setup.
    void loadSettings(HostDocument& document, HostElement& element) {
        persist("load its settings", PluginEvent::settings, document, element, false);
    }
    /// The channels.
    void loadSetup(HostDocument& document, HostElement& element);
    void saveSettings(HostDocument& document, HostElement& element) {
        persist("save its settings", PluginEvent::settings, document, element, true);
    }
    void saveSetup(HostDocument& document, HostElement& element) {
        persist("save its setup", PluginEvent::setup, document, element, true);
    }
    /// Channels again, as the modules have them.
    void clearSetup();
    /// Gives the clocks the modes and sources chosen in the host's device collection. To be called
    /// when the settings are loaded, and when the devices changed; not in a measurement.
    void updateDevices();

    /// Has the plug-in fill a window of the host's toolkit with its modules, or with its channels.
    /// The one that it filled before, if it is another, it lets go of.
    void showModules(HostObject& window) {
        sendObject("show its modules", PluginEvent::showModules, &window);
    }
    void showChannels(HostObject& window) {
        sendObject("show its channels", PluginEvent::showChannels, &window);
    }
    void closeModules() { sendEvent("close its window", PluginEvent::closeModules); }
    void closeChannels() { sendEvent("close its window", PluginEvent::closeChannels); }

    /// Calls operations of the plug-in's list of modules; `step` names them in the text of a
    /// failure.
    void callModules(const char* step, const std::function<HostResult(ModuleList&)>& action);
    /// `ModuleList::matchOutputs`, and lets the plug-in look at the new list of channels.
    void matchOutputs();

    /// The names of the network interfaces that the plug-in can capture on.
    std::vector<std::string> getInterfaces();
    /// The next measurement captures on these alone; none means all.
    void selectInterfaces(const std::vector<std::string>& names);
    /// What the plug-in says of network interfaces since the last call, for the user; none if it
    /// doesn't say.
    std::vector<InterfaceMessage> takeInterfaceMessages();

    /// From now on `ModuleState::isConnected` shows which modules are heard, before a measurement.
    void listen();

    void start();
    /// The periodic call; nothing where no measurement runs.
    void poll();
    bool needsNewPart() const { return state == State::Running && host->getClock().needsNewPart(); }
    void endPart();
    /// Whether all is there that was under way at the end. False before `endPart`.
    bool isDrained() const;
    /// When it is drained and everything was read from the channels.
    void startNextPart();
    void stop();

    bool isMeasuring() const { return state == State::Running || state == State::Ending; }
    /// Whether the measurement can't begin yet: the module whose clock leads it wasn't heard.
    bool isAwaitingLeader() const { return isMeasuring() && awaitsLeader; }

    // What the plug-in counts in this measurement or the last one; 0 and none if it doesn't count.
    /// Frames that the system threw away.
    std::uint64_t getDroppedFrames() const;
    /// What became of the messages of each channel.
    std::vector<ChannelStatistics> getChannels() const {
        return readAll(&CaptureStatistics::getChannels);
    }
    /// How each module's clock follows, in the order of the modules.
    std::vector<ClockStatistics> getClocks() const {
        return readAll(&CaptureStatistics::getClocks);
    }

    /// What was read from the network; nothing if the plug-in doesn't count.
    struct Traffic {
        /// Nothing of what the system counted if the plug-in doesn't know it.
        std::vector<ReceivedStatistics> interfaces;
        MessageStatistics messages;
        std::vector<ModuleStatistics> modules;
        std::vector<SenderStatistics> senders;
    };
    Traffic getTraffic() const;

    /// Gets the frames of the next measurements as `CaptureFrames` says; null for none. Not while
    /// one runs.
    void setFrameSink(FrameSink* sink);
    /// The names of the interfaces by the numbers that it gets; in a measurement.
    std::vector<std::string> getFrameSources();

  private:
    /// `Connecting` is left for `Ready` only: a plug-in whose connection failed gets no more calls.
    enum class State { New, Connecting, Ready, Running, Ending };

    void requireConnection() const;
    void requireSelection() const;
    template <typename Call>
    void call(const char* step, const Call& pluginCall);
    /// What the plug-in answers.
    HostVariant sendEvent(const char* step, std::int32_t event, const HostVariant& input = {});
    void sendObject(const char* step, std::int32_t event, HostObject* given);
    /// All entries that one of the operations has; none if it fails.
    template <class Entry>
    std::vector<Entry> readAll(HostResult (CaptureStatistics::*read)(Entry*, std::uint32_t*)) const;
    /// Says that the list of channels is another one, for the channels that the plug-in reads.
    void announceNewChannels();
    void persist(const char* step, std::int32_t event, HostDocument& document, HostElement& element,
                 bool saving);
    void stopQuietly() noexcept;
    void beginPart();
    bool hasLeader();
    /// How far a leading clock is, in seconds since the start; infinite if none leads, or if it
    /// hasn't got to the start yet.
    double leadingSeconds();
    /// As the plug-in counts them, from event 105 on.
    std::uint64_t countDroppedFrames() const;
    /// Time 0 is that of the leading clock.
    void beginWithLeader();

    const CountedRef<HostObject> object;
    const CountedRef<StationHost> host;
    const std::function<SystemClock::time_point()> utcNow;
    CountedRef<IPlugin3> plugin;
    CountedRef<IPlugin4> events;
    CountedRef<CaptureStatistics> statistics;  ///< empty if the plug-in has none
    CountedRef<CaptureTraffic> traffic;        ///< the same
    CountedRef<CaptureReception> reception;    ///< the same
    CountedRef<CaptureSelection> selection;    ///< the same
    CountedRef<CaptureFrames> frames;          ///< the same
    CountedRef<ModuleList> modules;            ///< the same
    State state = State::New;
    bool awaitsLeader = false;
    std::uint64_t droppedBefore = 0;  ///< frames that the system threw away before time 0
    double heldUntil = 0.0;           ///< host time up to which the position stays 0

    double endTime = 0.0;        ///< host time of `endPart`
    double leastDrain = 0.0;     ///< seconds
    double newestArrival = 0.0;  ///< host time of the last periodic call that brought something
    double leader = 0.0;         ///< `leadingSeconds` at the last periodic call
    int pollsSinceEnd = 0;
    std::uint64_t samplesSeen = 0;
};

template <class Entry>
std::vector<Entry> PluginDriver::readAll(
    HostResult (CaptureStatistics::*read)(Entry*, std::uint32_t*)) const {
    std::uint32_t count = 0;
    if (!statistics || (*statistics.*read)(nullptr, &count) < 0) {
        return {};
    }
    std::vector<Entry> entries(count);
    return (*statistics.*read)(entries.data(), &count) < 0 ? std::vector<Entry>() : entries;
}

}  // namespace station
