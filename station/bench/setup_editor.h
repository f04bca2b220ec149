#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "station/bench/bench.h"
#include "station/toolkit/headless/headless_user.h"

namespace station {

/// What was asked for isn't there or makes no sense; the text says what there is.
class SetupEditError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What shall be in a row of a module; what isn't told stays.
struct ModuleChange {
    std::optional<std::string> type;
    std::optional<std::uint16_t> configId;
    std::optional<std::string> name;
};

struct ChannelChange {
    std::optional<bool> used;
    std::optional<std::string> name;
    std::optional<std::uint32_t> color;  ///< 0xRRGGBB
};

/// Changes the setup of a bench as a user would, in the plug-in's own windows: without a screen, so
/// that a bench without a display and a command can do it.
///
/// Modules are named by their row, from 0. All operations throw `SetupEditError` for what can't be,
/// and `UserError` where the plug-in's windows don't let a user do it. The bench isn't owned and
/// outlives this.
class SetupEditor {
  public:
    explicit SetupEditor(Bench& editedBench);

    /// Returns the new module's row.
    std::size_t addModule(const ModuleChange& module);
    /// A second module with the CM ID of another one would get no messages, and is refused.
    void changeModule(std::size_t module, const ModuleChange& change);
    void removeModules(const std::vector<std::size_t>& modules);
    void changeChannel(const ChannelRow& channel, const ChannelChange& change);
    /// The module's channels are used, all of them.
    void useAllChannels(std::size_t module);

  private:
    void pickType(std::int32_t row, const std::string& type);
    void setConfigId(std::int32_t row, std::uint16_t configId);
    void requireOwnCmId(std::size_t module);

    Bench& bench;
    const CountedRef<HeadlessWindow> modulesWindow;
    const CountedRef<HeadlessWindow> channelsWindow;
    const HeadlessUser modulesUser;
    const GridUser modulesGrid;
    const GridUser channelsGrid;
};

}  // namespace station
