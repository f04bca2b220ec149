#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/frame_sink.h"
#include "host/host_object.h"

class HostApp;
struct HostVariant;

/// The class of the plug-in, for a host that is given its module without looking up what is
/// registered.
inline constexpr InterfaceId cmpPluginClassId{
    0x8C1E7B52, 0x5D0F, 0x4E6B, {0x9A, 0x37, 0xC4, 0x18, 0x6E, 0x2D, 0x90, 0x5B}};

/// Late binding: operations called by name. The base of the plug-in's interfaces; an object whose
/// host calls it directly gives 0 for the count and fails in the other three.
class HostDispatch : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x3E704C2F, 0x6EC0, 0x426A, {0xB9, 0x29, 0x28, 0x7C, 0x19, 0xD1, 0x32, 0x24}};

    virtual HostResult getTypeInfoCount(std::uint32_t* count) = 0;
    virtual HostResult getTypeInfo(std::uint32_t index, std::uint32_t locale,
                                   HostObject** info) = 0;
    virtual HostResult getIdsOfNames(const wchar_t* const* names, std::uint32_t count,
                                     std::uint32_t locale, std::int32_t* ids) = 0;
    virtual HostResult invoke(std::int32_t operationId, std::uint32_t locale, std::uint16_t flags,
                              const HostVariant* arguments, std::uint32_t count,
                              HostVariant* result) = 0;

  protected:
    ~HostDispatch() = default;
};

/// The plug-in as the host first saw it. The host calls all of these, on its one thread, and alone
/// decides the order, with two rules: `onConnectHost` comes first, and nothing but the last
/// `release` comes after it has failed. Each operation may throw: what the plug-in meets in the
/// middle of it goes to the host as it is, with nothing rolled back.
///
/// An operation without a name is known by its position. It does nothing here but to give the
/// answer given with it, which hosts rely on; one without such an answer returns 0.
class IPlugin2 : public HostDispatch {
  public:
    static constexpr InterfaceId id{
        0x2A59711A, 0xC44E, 0x4D88, {0xB7, 0xCD, 0x0D, 0xF3, 0x35, 0x34, 0x95, 0xF5}};

    /// Takes the host and refuses it (`HostCode::aborted`) if it is too old, and shows the user
    /// why.
    virtual HostResult onConnectHost(HostApp* host) = 0;
    /// A measurement, or the live view of the setup, starts: clocks and channels begin again.
    virtual HostResult onStartAcquisition() = 0;
    virtual HostResult position3() = 0;
    /// A measurement is about to start; may come more than once.
    virtual HostResult onPrepareAcquisition() = 0;
    virtual HostResult position5() = 0;
    /// Periodically while the host acquires: moves all data that is due into the host's channels.
    virtual HostResult onGetData() = 0;
    virtual HostResult position7() = 0;
    virtual HostResult position8() = 0;
    virtual HostResult position9() = 0;
    virtual HostResult position10() = 0;
    virtual HostResult position11() = 0;
    /// The user began a new setup: drops all channels and makes those of the present modules.
    virtual HostResult onClearSetup() = 0;
    /// The host's channels are about to go: lets go of them all.
    virtual HostResult onDisconnectChannels() = 0;
    /// Writes 1 to `answer` and leaves the other alone.
    virtual HostResult position14(void* untouched, std::uint16_t* answer) = 0;
    virtual HostResult position15() = 0;
    virtual HostResult position16() = 0;
    /// Writes 1.
    virtual HostResult position17(std::uint16_t* answer) = 0;
    virtual HostResult position18() = 0;
    virtual HostResult position19() = 0;

  protected:
    ~IPlugin2() = default;
};

/// Later additions. Two repeat an operation of `IPlugin2` at a place of their own.
class IPlugin3 : public IPlugin2 {
  public:
    static constexpr InterfaceId id{
        0x42225882, 0xE5F2, 0x490C, {0x83, 0x0B, 0xBE, 0x22, 0xD0, 0x9D, 0xD1, 0x93}};

    // The numbers look alike to a checker of spelling.
    // NOLINTBEGIN(bugprone-virtual-near-miss)

    /// The same as `onStartAcquisition`.
    virtual HostResult position20() = 0;
    virtual HostResult position21() = 0;
    virtual HostResult position22() = 0;
    virtual HostResult position23() = 0;
    virtual HostResult position24() = 0;
    virtual HostResult position25() = 0;
    virtual HostResult position26() = 0;
    virtual HostResult position27() = 0;
    virtual HostResult position28() = 0;
    /// Writes 7.
    virtual HostResult position29(std::int32_t* answer) = 0;
    /// The same as `onGetData`.
    virtual HostResult position30() = 0;
    virtual HostResult position31() = 0;
    /// Whether a clock of the plug-in leads the measurement: 1 or 0, and not a `HostBool`.
    virtual HostResult position32(std::uint16_t* hasMaster) = 0;
    /// The samples since the start by the leading clock, as the two halves of a 64-bit number, or
    /// 0xFFFFFFFF in both if none leads. `low` set to 0xFFFFFFFF before asks for a reduced count.
    virtual HostResult position33(std::uint32_t* low, std::uint32_t* high) = 0;
    virtual HostResult position34() = 0;
    virtual HostResult position35() = 0;
    virtual HostResult position36() = 0;
    virtual HostResult position37() = 0;
    /// Writes 1 to `answer` and leaves the other alone.
    virtual HostResult position38(void* untouched, std::uint16_t* answer) = 0;
    virtual HostResult position39() = 0;
    // NOLINTEND(bugprone-virtual-near-miss)

  protected:
    ~IPlugin3() = default;
};

/// Everything that came after the positions, by number. A plug-in has this beside `IPlugin3`.
class IPlugin4 : public HostDispatch {
  public:
    static constexpr InterfaceId id{
        0x99001994, 0x2020, 0x42EB, {0xAA, 0x3F, 0x08, 0x52, 0x3E, 0x89, 0x5E, 0x99}};

    /// `HostCode::notHandled` for a number that this plug-in has no use for, with `result`
    /// untouched. May throw, as the operations of `IPlugin2`. Where an event has no result,
    /// `result` may be null.
    virtual HostResult onEvent(std::int32_t event, const HostVariant& input,
                               HostVariant* result) = 0;

  protected:
    ~IPlugin4() = default;
};

/// The numbers of the events of `IPlugin4::onEvent` that do something.
namespace PluginEvent {
inline constexpr std::int32_t startCapture = 105;  ///< opens the interfaces and begins data read
inline constexpr std::int32_t hasMaster = 106;
inline constexpr std::int32_t hasMasterToo = 109;
inline constexpr std::int32_t channelsCameOrWent = 111;
inline constexpr std::int32_t alignChannels = 115;
inline constexpr std::int32_t getData = 117;  ///< the periodic call
inline constexpr std::int32_t claimChannels = 118;
inline constexpr std::int32_t rebindInputs = 129;
inline constexpr std::int32_t startSetupRead = 130;  ///< ends data read
inline constexpr std::int32_t removeHostChannel = 131;
inline constexpr std::int32_t channelsWent = 133;
inline constexpr std::int32_t channelsChanged = 134;
inline constexpr std::int32_t getRequiredDelay = 136;
inline constexpr std::int32_t enableClocks = 156;
inline constexpr std::int32_t checkArray = 157;
inline constexpr std::int32_t setup = 158;
inline constexpr std::int32_t settings = 159;
inline constexpr std::int32_t updateDevices = 177;
inline constexpr std::int32_t showChannels = 179;
inline constexpr std::int32_t closeChannels = 180;
inline constexpr std::int32_t showModules = 181;
inline constexpr std::int32_t closeModules = 182;
inline constexpr std::int32_t showChannelsToo = 185;
inline constexpr std::int32_t endOfSetup = 186;
}  // namespace PluginEvent

/// What became of the messages of one bus since event 105. While data is read some may still be
/// queued; from event 130 on `queued` is the sum of all fields behind it, but for `raised`.
struct ChannelStatistics {
    /// The module was removed, or has another type now.
    static constexpr std::uint32_t goneModule = 0xFFFFFFFF;

    std::uint32_t module = 0;     ///< position in the plug-in's list of modules, or `goneModule`
    std::int32_t output = -1;     ///< index of its output channel ("ChId"); -1 without one
    std::uint64_t unusable = 0;   ///< not queued: a payload that holds no whole message that fits
    std::uint64_t queued = 0;     ///< messages that came in
    std::uint64_t delivered = 0;  ///< given to the host's channel, whether it is used or not
    /// Of the delivered: with the time of the one before, as their own was more than 1 ms earlier.
    std::uint64_t raised = 0;
    // No loss: stamped outside of the measurement. Stamps of a clock that has jumped there are
    // losses, too old or too new.
    std::uint64_t beforeStart = 0;
    std::uint64_t afterEnd = 0;
    // Lost.
    /// Older than the host's history, or than ten seconds; or from before the start, and in later
    /// than messages may be.
    std::uint64_t tooOld = 0;
    std::uint64_t tooNew = 0;      ///< further ahead than can be held back
    std::uint64_t notPlaced = 0;   ///< the module's clock had no relation to the host's time
    std::uint64_t leftQueued = 0;  ///< due, but not asked for before event 130
    std::uint64_t noOutput = 0;    ///< there was no output channel

    std::uint64_t getLost() const { return tooOld + tooNew + notPlaced + leftQueued + noOutput; }
};

/// How a module's clock follows the host's at the moment.
struct ClockStatistics {
    static constexpr std::int32_t other = 0;
    static constexpr std::int32_t softSync = 1;
    static constexpr std::int32_t ppsSlave = 2;
    static constexpr std::int32_t ppsMaster = 3;

    std::int32_t mode = other;
    bool isLeading = false;   ///< it is the one that leads the measurement
    bool hasTime = false;     ///< the module was heard since the start of the acquisition
    bool isPlaced = false;    ///< its times have host times
    double elapsed = 0.0;     ///< of a clock that leads: seconds since host time 0 by it, now
    double offset = 0.0;      ///< device time at host time 0, seconds since 1970
    double ratePpm = 0.0;     ///< by how much its clock is faster than the host's
    double residual = 0.0;    ///< latest reading minus fitted line, seconds of host time
    double age = -1.0;        ///< seconds since its latest message came in; negative without one
    double deviceTime = 0.0;  ///< of that message, seconds since 1970
    std::uint64_t jumps = 0;  ///< how often its time jumped, so that the fit began again
};

/// What the plug-in's capture knows of itself. A host may ask; nothing depends on it.
class CaptureStatistics : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x5A1D6C0E, 0x7F42, 0x4B0B, {0x8D, 0x25, 0x1E, 0x93, 0xA6, 0x4C, 0x70, 0xE9}};

    /// Frames of any kind that the system received after event 105 and threw away before the
    /// plug-in could read them, as far as was known within the last tenth of a second, or at event
    /// 130.
    virtual HostResult getDroppedFrames(std::uint64_t* frames) = 0;
    /// Fills in `channels`, which has room for `*count` entries, as far as it goes, module by
    /// module, and behind them those that are gone since event 105, output by output; `*count`
    /// becomes the number of all there are. `channels` may be null for room 0.
    virtual HostResult getChannels(ChannelStatistics* channels, std::uint32_t* count) = 0;
    /// The same for the clocks, one for each module.
    virtual HostResult getClocks(ClockStatistics* clocks, std::uint32_t* count) = 0;

  protected:
    ~CaptureStatistics() = default;
};

/// What was read from a network interface since event 105.
struct InterfaceStatistics {
    std::wstring name;            ///< empty for all together that were opened later
    std::uint64_t kept = 0;       ///< frames of EtherType 0x99FE
    std::uint64_t foreign = 0;    ///< all others
    std::uint64_t malformed = 0;  ///< of the kept: those that couldn't be decoded to their end
    std::uint64_t dropped = 0;    ///< by the system, before they could be read
};

/// The messages in the kept frames since event 105. Each data message is in `empty`,
/// `unknownModule` or `unknownChannel`, or in `queued` or `unusable` of one channel.
struct MessageStatistics {
    /// A CM ID that no module has, and how many data messages had it.
    struct Unknown {
        std::uint16_t cmId = 0;
        std::uint64_t messages = 0;
    };
    static constexpr std::size_t mostUnknown = 8;

    std::uint64_t data = 0;
    std::uint64_t moduleStatus = 0;
    std::uint64_t busStatus = 0;
    std::uint64_t other = 0;           ///< of types that aren't evaluated
    std::uint64_t empty = 0;           ///< data messages that hold no CAN message
    std::uint64_t unknownModule = 0;   ///< data messages whose CM ID no module has
    std::uint64_t unknownChannel = 0;  ///< whose interface the module doesn't have
    Unknown unknown[mostUnknown];  ///< the first CM IDs of `unknownModule`; no messages: no entry
};

/// The frames of a module since event 105.
struct ModuleStatistics {
    std::uint64_t frames = 0;
    /// Whose sequence counter isn't the successor of the latest: frames may be missing on the
    /// way, or the module has several counters.
    std::uint64_t sequenceGaps = 0;
    /// So many frames the counter has skipped in those gaps, but for those that are longer than a
    /// thousand: a module that was restarted isn't a loss of as many.
    std::uint64_t missingFrames = 0;
};

/// What the plug-in read from the network, as it was known within the last tenth of a second, or at
/// event 130. A host may ask; nothing depends on it.
class CaptureTraffic : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x3F08B1C6, 0x91DE, 0x4A57, {0xB2, 0x6C, 0x0E, 0x58, 0xD7, 0x13, 0xA9, 0x44}};

    virtual HostResult getInterfaces(std::vector<InterfaceStatistics>* interfaces) = 0;
    virtual HostResult getMessages(MessageStatistics* messages) = 0;
    /// One for each module.
    virtual HostResult getModules(std::vector<ModuleStatistics>* modules) = 0;

  protected:
    ~CaptureTraffic() = default;
};

/// What was read from a network interface beside what the system counted there.
struct ReceivedStatistics : InterfaceStatistics {
    HostBool isCounted = hostFalse;  ///< else `received` says nothing
    /// Frames that the system received since event 105: those of `InterfaceStatistics`, and those
    /// that wait in its ring.
    std::uint64_t received = 0;
};

/// Whether the status messages of a module's CM ID come from several modules: their serial number
/// has changed more than once since event 105.
struct SenderStatistics {
    HostBool areSeveral = hostFalse;
    std::uint32_t serials[2] = {};  ///< then: two of them, the latest first
};

/// More than `CaptureTraffic` has. A host may ask; nothing depends on it.
class CaptureReception : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x969C54F7, 0x77FA, 0x4437, {0xA4, 0xF7, 0xDB, 0xDD, 0x18, 0xF6, 0xCF, 0xA2}};

    /// For each entry of `CaptureTraffic::getInterfaces`.
    virtual HostResult getReceived(std::vector<ReceivedStatistics>* interfaces) = 0;
    /// One for each module.
    virtual HostResult getSenders(std::vector<SenderStatistics>* senders) = 0;

  protected:
    ~CaptureReception() = default;
};

/// The frames of EtherType 0x99FE themselves, as they are read. A host may ask; nothing depends on
/// it.
class CaptureFrames : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xD26A4F90, 0x3B7E, 0x49C1, {0x8A, 0x15, 0x6F, 0xC2, 0x70, 0x9D, 0x3E, 0xB8}};

    /// Gets each frame from the next event 105 to the event 130 behind it; null for none. Not
    /// between these two events. It isn't owned.
    virtual HostResult setSink(FrameSink* sink) = 0;
    /// By the numbers that the sink gets, from event 105 on: the names of the interfaces. The one
    /// without a name is all together that are opened later.
    virtual HostResult getSources(std::vector<std::wstring>* names) = 0;

  protected:
    ~CaptureFrames() = default;
};

/// What has become of a network interface.
struct InterfaceMessage {
    std::wstring text;                ///< a sentence for the user
    HostBool isHarmless = hostFalse;  ///< no frame can be missing by it
};

/// Which network interfaces the plug-in captures on. A host that doesn't ask for it gets all that
/// don't only repeat others. They are captured on as soon as they are there and up, also after
/// event 105.
class CaptureSelection : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x1B7E93D4, 0x2C58, 0x4E0D, {0xA6, 0x71, 0x94, 0x3F, 0xD2, 0x0B, 0x85, 0x6A}};

    /// The names of the interfaces that could be captured on. `HostCode::failed` if the system
    /// doesn't say.
    virtual HostResult getInterfaces(std::vector<std::wstring>* names) = 0;
    /// The interfaces that event 105 opens from now on; none named means all that don't only
    /// repeat others. A name of no interface waits for one that appears.
    virtual HostResult selectInterfaces(const wchar_t* const* names, std::uint32_t count) = 0;
    /// What has become of interfaces since event 105 and since the last call: which can't be
    /// opened, are left out as they only repeat others, appear later, go away.
    virtual HostResult takeMessages(std::vector<InterfaceMessage>* messages) = 0;

  protected:
    ~CaptureSelection() = default;
};

/// Makes objects of one class: what a component hands out for a class identifier.
class HostClassFactory : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x25976AE9, 0x9E57, 0x4D50, {0xBA, 0xB1, 0xB8, 0xF5, 0xD0, 0x2D, 0x91, 0x6C}};

    /// A new object, by that interface of it. `outer` is the object that the new one shall be a
    /// part of, null for one of its own. `HostCode::outOfMemory` for whatever goes wrong in its
    /// construction: this is where no exception gets out.
    virtual HostResult createInstance(HostObject* outer, const InterfaceId& interfaceId,
                                      void** result) = 0;
    /// Keeps the component loaded while there are locks.
    virtual HostResult lockServer(HostBool lock) = 0;

  protected:
    ~HostClassFactory() = default;
};
