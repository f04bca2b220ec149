#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/host_object.h"

/// One bus of a capture module.
struct ListedChannel {
    std::uint16_t interfaceId = 0;
    std::wstring busType;      ///< as the window of channels shows it
    std::int32_t output = -1;  ///< index of its output channel ("ChId"); -1 without one
};

/// A capture module as it is set up.
struct ListedModule {
    std::wstring type;
    std::wstring name;
    std::uint16_t configId = 0;
    std::uint16_t cmId = 0;
    std::int32_t clock = -1;  ///< place among the clocks that the plug-in shows to the host; or -1
    std::vector<ListedChannel> channels;
};

/// What a capture module was last heard of.
struct ModuleState {
    bool isConnected = false;
    std::wstring serialNumber;  ///< "N/A" while it isn't connected
};

/// The plug-in's list of capture modules, and what a user can change in it: the same as in the
/// plug-in's windows, for a host that has no use for windows. A host may ask; nothing depends on
/// it.
///
/// Modules are named by their position, from 0. What makes no sense, as one behind the last, is
/// `HostCode::invalidArgument` and changes nothing. Called on the host's thread.
class ModuleList : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x7C3E58A1, 0x04D9, 0x4F26, {0xB2, 0x6B, 0x50, 0xC8, 0x1D, 0xE7, 0x39, 0xF4}};

    /// Goes up whenever `getModules` gives something else than before.
    virtual HostResult getChanges(std::uint64_t* changes) = 0;
    virtual HostResult getModules(std::vector<ListedModule>* modules) = 0;
    /// One for each module. They change by themselves.
    virtual HostResult getStates(std::vector<ModuleState>* states) = 0;
    /// Modules that were heard since the capture was started and aren't set up, the first few: as
    /// they would be in the list, without a name, and without a type where the CM ID doesn't show
    /// it.
    virtual HostResult getUnlisted(std::vector<ListedModule>* modules) = 0;
    /// The types that a module can have, in the order in which a user is offered them; in the
    /// windows a new one is "Unknown", and has no channels, until it gets one of them.
    virtual HostResult getTypes(std::vector<std::wstring>* types) = 0;

    /// Adds a module of that type, with ConfigId 0, at the end.
    virtual HostResult addModule(const wchar_t* type) = 0;
    virtual HostResult removeModule(std::uint32_t position) = 0;
    /// Replaces the module's channels, if it is another type than before.
    virtual HostResult setType(std::uint32_t position, const wchar_t* type) = 0;
    /// Up to 15 for a type whose CM IDs are a range of 16; for others it is the CM ID. (In the
    /// window a number up to 15 replaces the last digit of such a CM ID alone.)
    virtual HostResult setConfigId(std::uint32_t position, std::uint16_t configId) = 0;
    virtual HostResult setName(std::uint32_t position, const wchar_t* name) = 0;

    /// Gives each bus that has none an output channel, not used yet, and takes those of buses that
    /// are gone out of the host's list. As after the load of a setup the host isn't notified of the
    /// change. Not in a measurement.
    virtual HostResult matchOutputs() = 0;

  protected:
    ~ModuleList() = default;
};
