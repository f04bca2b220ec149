#pragma once

#include <cstdint>

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
/// answer told with it, which hosts rely on; one without such an answer returns 0.
class IPlugin2 : public HostDispatch {
  public:
    static constexpr InterfaceId id{
        0x2A59711A, 0xC44E, 0x4D88, {0xB7, 0xCD, 0x0D, 0xF3, 0x35, 0x34, 0x95, 0xF5}};

    /// Takes the host and refuses it (`HostCode::aborted`) if it is too old, telling the user why.
    virtual HostResult onConnectHost(HostApp* host) = 0;
    /// A measurement, or the live view of the setup, starts: clocks and channels begin anew.
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

/// What the plug-in's capture can tell of itself. A host may ask; nothing depends on it.
class CaptureStatistics : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xE7655A4D, 0x03B1, 0x43F3, {0xB0, 0x00, 0xEF, 0xAB, 0xCB, 0xD7, 0xF0, 0xFD}};

    /// Frames of any kind that the system received since event 105 and threw away before the
    /// plug-in could read them, as far as was known within the last tenth of a second, or at event
    /// 130.
    virtual HostResult getDroppedFrames(std::uint64_t* frames) = 0;

  protected:
    ~CaptureStatistics() = default;
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
