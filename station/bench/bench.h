#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/performance_counter.h"
#include "station/bench/plugin_module.h"
#include "station/bench/plugin_windows.h"
#include "station/document/setup_file.h"
#include "station/host/module_facts.h"
#include "station/host/plugin_driver.h"
#include "station/summary.h"

namespace station {

struct BenchOptions {
    /// Empty: the registered plug-in, else the one beside this program.
    std::filesystem::path plugin;
    double sampleRate = MasterClock::defaultSampleRate;
    /// Gets what the plug-in has for the user.
    std::function<void(const std::string&)> onError;
};

/// The station with one loaded plug-in and one setup: what a measurement, the commands on a setup
/// and the desktop program stand on.
///
/// The document of the setup holds a `Plugin` element for each plug-in, by class identifier, with
/// what the plug-in saves in `Settings` (modules, clocks) and `Channels`. Everything else in it
/// stays as it is.
///
/// A setup is opened once, for a plug-in that failed to load one can't be used again: for another
/// setup there is another bench. Called on the host's thread.
class Bench {
  public:
    /// Loads and connects the plug-in. Throws `PluginError`, also if there is none, and
    /// `std::invalid_argument` for a sample rate that can't be.
    explicit Bench(BenchOptions options);
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    /// Opens a setup in place of the empty one that a bench has. Once. Throws SetupFileError, or
    /// `PluginError` for contents that the plug-in refuses.
    void open(const SetupFile& file);
    /// To be called when modules were added, removed or got another type, so that each has its
    /// channels. New ones are unused and named after module and interface. Not in a measurement.
    void refreshChannels();
    /// Throws as `open`; the file is as it was then.
    void save(const SetupFile& file);
    /// The setup as it would be saved: to tell whether anything was changed.
    std::string text();

    StationHost& host() { return *stationHost; }
    PluginDriver& driver() { return *pluginDriver; }
    PluginWindows& windows() { return *pluginWindows; }

    /// The modules in their order, as they stand now.
    std::vector<ModuleSummary> modules();
    /// Whose channel each is.
    std::vector<ChannelOwner> channelOwners();
    /// The host's channel of that module and position; empty if there is none.
    CountedRef<StationChannel> findChannel(std::size_t module, std::size_t position);
    /// The clocks of the modules in their order. Not in a measurement, as it sets them again.
    std::vector<ClockChoice> clocks();
    /// How the module's clock follows the host's. Not in a measurement. Throws `PluginError` for
    /// what the clock can't do.
    void chooseClock(std::size_t module, ClockChoice choice);

  private:
    void begin();
    std::vector<ModuleFacts> readFacts();
    /// The modules' clocks as the host has them; empty for a module without one.
    std::vector<CountedRef<GnssDevice>> clockDevices();
    CountedRef<SetupElement> saveChannels();
    CountedRef<SetupElement> writeSection();
    void putSection();

    const SteadyPerformanceCounter counter;
    const PluginModule pluginModule;
    CountedRef<StationHost> stationHost;
    std::unique_ptr<PluginDriver> pluginDriver;
    CountedRef<SetupDocument> document;
    std::unique_ptr<PluginWindows> pluginWindows;
};

}  // namespace station
