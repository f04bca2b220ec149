#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/performance_counter.h"
#include "station/document/setup_file.h"
#include "station/errors.h"
#include "station/host/plugin_driver.h"
#include "station/session/module.h"
#include "station/session/plugin_module.h"

namespace station {

struct SessionOptions {
    /// Empty: the registered plug-in, else the one beside this program.
    std::filesystem::path plugin;
    double sampleRate = MasterClock::defaultSampleRate;
    /// Gets what the plug-in has for the user.
    std::function<void(const std::string&)> onError;
};

/// The station with one loaded plug-in and one setup: what a measurement, the commands on a setup
/// and the desktop program work on.
///
/// The document of the setup holds a `Plugin` element for each plug-in, by class identifier, with
/// what the plug-in saves in `Settings` (modules, clocks) and `Channels`, and a `Stream` element
/// with the options of a stream. Everything else in it stays as it is.
///
/// A setup is opened once, for a plug-in that failed to load one can't be used again: for another
/// setup there is another session. Modules are named by their position, from 0; operations on them
/// throw `UserError` for what can't be, and all throw `PluginError` where the plug-in fails.
/// Called on the host's thread.
class Session {
  public:
    /// Loads and connects the plug-in. Throws `PluginError`, also if there is none, and
    /// `std::invalid_argument` for a sample rate that can't be.
    explicit Session(SessionOptions options);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Opens a setup in place of the empty one that a session has. Once. Faults that show without
    /// its being saved are reported with their line. Throws FileError, or `PluginError` for
    /// contents that the plug-in refuses.
    void open(const SetupFile& file);
    /// What the setup that was opened says and the plug-in hasn't taken so (setup_losses.h): what
    /// saving it would drop. To be asked before anything is changed.
    std::vector<std::string> findLosses();
    /// Reports faults of a setup, the first hundred one by one.
    void report(const SetupFile& file, const std::vector<std::string>& faults);
    /// Throws as `open`, and `UserError` in a measurement in which modules were changed, for they
    /// have no channels then; the file is as it was.
    /// `onLosses` is called before that if something of what was opened isn't saved so, for
    /// whatever reason: a change that was wanted, or what `findLosses` finds.
    void save(const SetupFile& file, const std::function<void()>& onLosses = {});

    StationHost& getHost() { return *stationHost; }
    PluginDriver& getDriver() { return *pluginDriver; }

    /// The modules in their order, with their channels, as they are now.
    std::vector<Module> getModules();
    /// Modules that are heard and aren't set up, since `PluginDriver::listen` or a measurement; one
    /// whose type isn't known has an empty one.
    std::vector<Module> findUnlisted();
    /// The host's channel of a bus. `UserError` if it has none.
    StationChannel& findOutput(const Channel& channel);

    /// Adds a module of that type and ConfigId, with channels that aren't used; without a name it
    /// gets its type's own. Returns its position.
    std::size_t addModule(const Module& module);
    void removeModules(std::vector<std::size_t> modules);
    void setType(std::size_t module, const std::string& type);
    void setConfigId(std::size_t module, std::uint16_t configId);
    void setName(std::size_t module, const std::string& name);
    /// A second module with the CM ID of another one would get no messages.
    void requireOwnCmId(std::size_t module);

    /// A text for each CM ID that several modules of the setup have, as only the first of them gets
    /// messages, and for each clock, as their times ruin each other's.
    std::vector<std::string> findSharedIds();

    /// Whether there are modules without channels, or channels without a module.
    bool needsChannels();
    /// Gives each bus a channel of its own and drops those of modules that are gone. New ones are
    /// unused and named after module and interface. Not in a measurement.
    void matchChannels();

    /// The clocks of the modules in their order. Not in a measurement, as it sets them again.
    std::vector<ClockChoice> getClocks();
    /// How the module's clock follows the host's. Not in a measurement. Throws `PluginError` for
    /// what the clock can't do.
    void chooseClock(std::size_t module, ClockChoice choice);

    /// Of a measurement's stream, by the names of its options ("station"); empty for none.
    using StreamOptions = std::map<std::string, std::string>;
    StreamOptions getStreamOptions() const;
    void setStreamOptions(const StreamOptions& options);

  private:
    /// Reads the list again if it isn't what it was.
    void refreshModules();
    std::string findType(const std::string& wanted);
    /// The modules' clocks as the host has them; empty for a module without one.
    std::vector<CountedRef<GnssDevice>> clockDevices();
    CountedRef<SetupElement> writeSection();
    void putSection(const std::function<void()>& onLosses);

    const SteadyPerformanceCounter counter;
    const std::unique_ptr<PluginModule> pluginModule;
    CountedRef<StationHost> stationHost;
    std::unique_ptr<PluginDriver> pluginDriver;
    CountedRef<SetupDocument> document;
    std::optional<std::uint64_t> changesSeen;  ///< when the modules were read
    std::vector<ListedModule> listed;
};

}  // namespace station
