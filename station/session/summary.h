#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/plugin.h"
#include "station/recording/recording_set.h"
#include "station/session/module.h"

namespace station {

/// The text for the user then; how to use one follows, and depends on the program.
inline constexpr const char* noChannelIsUsed = "No channel is used: nothing will be measured. ";

/// What came in last of a signal.
struct SignalSummary {
    std::string name;
    double value = 0.0;
    std::string unit;
    std::string text;         ///< what the value means; empty: that isn't said
    std::uint64_t count = 0;  ///< messages that had it
};

/// The messages of a channel that have one definition.
struct MessageSummary {
    std::uint32_t id = 0;
    bool isExtended = false;
    std::string name;
    std::uint64_t count = 0;
    std::vector<SignalSummary> signals = {};  ///< those that came in
};

/// For which share of the time a bus was taken, where its bit rate is known: 1 is all of it. More
/// says that the bus runs faster than that. `WireBits` is the model.
struct BusLoadSummary {
    BitRates rates;
    double lately = 0.0;  ///< in the last second
    double mean = 0.0;    ///< since the start
    double most = 0.0;    ///< in a second
};

/// What has become of one channel's messages so far. Once a measurement is over it adds up:
/// `counts.queued` is `counts.delivered`, what was stamped outside of it, and what was lost;
/// `counts.delivered` is `frames` and `overwritten`; and of `frames` each recording has or has lost
/// all.
struct ChannelSummary {
    static constexpr std::size_t noModule = static_cast<std::size_t>(-1);

    std::size_t module = 0;  ///< position in `Summary::modules`, or `noModule`
    std::uint16_t interfaceId = 0;
    BusType bus = BusType::Can;
    std::string busName;
    std::string name;
    std::uint64_t frames = 0;
    double firstTime = 0.0;  ///< seconds since the start; meaningless without frames
    double lastTime = 0.0;
    double rate = 0.0;                        ///< frames a second, lately
    std::optional<BusLoadSummary> load = {};  ///< empty: its bit rate isn't known
    std::string lastValue;
    /// By the plug-in, as far as it was asked lately; none without a host around the core.
    std::optional<ChannelStatistics> counts;
    std::uint64_t overwritten = 0;  ///< messages that were overwritten before they could be read
    /// By the databases of the channel; not there if it has none.
    std::optional<std::vector<MessageSummary>> messages = {};
    std::uint64_t undefined = 0;  ///< messages that they don't define

    std::uint64_t getLost() const { return (counts ? counts->getLost() : 0) + overwritten; }
    /// How many were lost, by cause; empty for none.
    std::string describeLoss() const;
    /// A text for each kind of messages that were lost, can't be delivered or got another time.
    std::vector<std::string> describeAccount() const;
};

/// The causes for which the plug-in lost messages between two looks at its counts, with how many
/// each; empty for none.
std::string lossReasons(const ChannelStatistics& before, const ChannelStatistics& now);
/// The same as a sentence.
std::string lossText(const std::string& channel, const ChannelStatistics& before,
                     const ChannelStatistics& now);
/// The text for the user about messages that got the time of the one before.
std::string raisedText(const std::string& channel, std::uint64_t messages);
/// The text for the user about messages that came for a channel and can't be one of its bus.
std::string unusableText(const std::string& channel, std::uint64_t messages);
/// The text for the user about a module whose device time jumps.
std::string jumpsText(const std::string& module, std::uint64_t jumps);
/// "1 gap, 20 frames missing"; "2 times out of sequence, no frame missing" where frames came twice
/// or in another order, or the module was restarted.
std::string gapsText(const ModuleStatistics& frames);
/// The text for the user about gaps in a module's sequence counter: a hint, nothing that is known.
std::string sequenceText(const std::string& module, const ModuleStatistics& frames);
/// The text for the user about several modules of one CM ID.
std::string rivalsText(const Module& module, const SenderStatistics& senders);
/// The text for the user about a module whose device time doesn't advance.
std::string standingText(const std::string& module);

/// "soft sync", "PPS", "PPS, leading" or "unknown".
const char* modeText(const ClockStatistics& clock);
/// "not heard", "not placed" or "following".
const char* stateText(const ClockStatistics& clock);
/// How a module's clock follows: "soft sync +1.2 ppm, residual 3.4 us, ...".
std::string describeClock(const ClockStatistics& clock);

/// In place of a name: all interfaces together that were opened later.
inline constexpr const char* laterInterfaces = "interfaces that appeared later";

/// For the user.
std::string nameOf(const InterfaceStatistics& interface);
/// Of the frames that the system received, those that weren't read: they are still in its ring.
/// Less than 0 says that the system has counted wrong. Without its count 0.
std::int64_t unreadOf(const ReceivedStatistics& interface);
/// The messages that came for no channel, with the CM IDs that no module has; empty for none.
std::string describeUnknown(const MessageStatistics& messages);

/// What has become of the messages of `run --stream`, those included that an earlier run had left.
/// All but the last few that are being put together are in one of `acknowledged`, `backlogMessages`
/// and `lost`.
struct StreamSummary {
    std::string servers;  ///< as they were named
    std::string station;
    std::string session;  ///< identifier of the measurement in the stream
    std::string spool;    ///< folder
    bool isConnected = false;
    std::string server;                 ///< the one that is connected
    std::string failure;                ///< why none is; empty: that isn't known yet
    std::uint64_t published = 0;        ///< messages that were sent
    std::uint64_t acknowledged = 0;     ///< and are stored
    std::uint64_t backlogMessages = 0;  ///< in the spool
    std::uint64_t backlogBytes = 0;
    std::uint64_t lost = 0;    ///< had to go, as the spool was full
    bool isNameTaken = false;  ///< the failure is that another station has the name
};

/// What has become of the readers of `run --serve`. What a reader lost is in the recordings.
struct ServeSummary {
    struct Bus {
        std::string name;
        std::string channel;
    };

    std::string address;          ///< "127.0.0.1:29536"
    std::vector<Bus> buses;       ///< what a reader may open
    std::size_t readers = 0;      ///< connected now
    std::uint64_t connected = 0;  ///< all there were
    std::uint64_t refused = 0;    ///< those for which there was no room
    std::uint64_t sent = 0;       ///< messages, to all readers together
    std::uint64_t cutOff = 0;     ///< readers that were too slow
    std::uint64_t lost = 0;       ///< messages that they didn't get
};

/// What a measurement is made of and what has come in so far: the live table and the JSON summary
/// are two forms of it.
struct Summary {
    using Clock = std::chrono::system_clock;

    Clock::time_point startTime;  ///< UTC of host time 0
    double seconds = 0.0;         ///< since then
    double longestPause = 0.0;    ///< between two calls of the plug-in's periodic work, in seconds
    std::uint64_t droppedFrames = 0;  ///< that the system threw away before they could be read
    std::uint64_t outOfOrder = 0;     ///< messages that came in behind later ones in the recordings
    std::vector<std::string> interfaceMessages;  ///< what became of network interfaces
    std::uint64_t interfaceMessagesLeftOut = 0;  ///< after so many that no more are kept
    bool hasInterfaceGap = false;                ///< one of them wasn't captured on for a time
    std::string awaitedLeader;  ///< the module for whose clock the start waits; empty: none
    std::vector<ReceivedStatistics> interfaces;  ///< none without a host around the core
    MessageStatistics messages;
    std::uint64_t unused = 0;  ///< data messages of channels that aren't used
    std::vector<Module> modules;
    std::vector<ChannelSummary> channels;
    std::vector<RecordingSummary> recordings;
    std::optional<StreamSummary> stream;
    std::optional<ServeSummary> serve;

    /// The databases that a setup with these modules has for the channel, where `setup` is its
    /// file.
    std::vector<std::string> findDatabases(const ChannelSummary& channel,
                                           const std::filesystem::path& setup) const;
    std::uint64_t getTotalFrames() const;
    /// Messages a second, lately, of a module's channels; without a module, of all.
    double getRate(std::optional<std::size_t> module = {}) const;
    /// The load of a module's buses in the last second, in the mean of those of which it is known;
    /// without a module, of all. Empty if it is known of none.
    std::optional<double> getLoad(std::optional<std::size_t> module = {}) const;
    /// Messages of all channels that were lost behind the network interface.
    std::uint64_t getTotalLost() const;
};

/// "12.3 %"
std::string loadText(double load);

/// UTC as "2026-01-31T12:00:00.123456789Z".
std::string toIsoText(Summary::Clock::time_point time);
/// One JSON object, indented, with a line feed at its end.
std::string toJson(const Summary& summary);
/// A table of modules and their channels, as lines. Channels that never got a frame are counted in
/// one line a module.
std::vector<std::string> toTable(const Summary& summary);
/// One line for a log.
std::string toProgressLine(const Summary& summary);

}  // namespace station
