#pragma once

#include <QString>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "station/gui/plot/file_job.h"
#include "station/serve/bus_server.h"
#include "station/session/coverage.h"
#include "station/session/measurement.h"
#include "station/session/shared_setup_file.h"
#include "station/toolkit/qt/qt_window.h"
#include "station/view/live_feed.h"

namespace station {

struct WorkspaceOptions {
    std::filesystem::path plugin;  ///< empty: the registered one, else the one beside the program
    double sampleRate = MasterClock::defaultSampleRate;
    /// Listens to the network between measurements too, so that the modules' states are known.
    bool listens = false;
    /// "socketcand://ADDRESS:PORT" where other programs can read the CAN channels of measurements;
    /// empty: nowhere.
    std::string serve = {};
    /// Gets what the user must know; called at any time on the host's thread.
    std::function<void(const std::string&)> onMessage;
    /// The same, in place of what was said of that topic before; an empty text settles that.
    std::function<void(const std::string& text, const std::string& topic)> onNews = {};
};

/// What the desktop program works on: one setup in a session, with the plug-in's windows, and the
/// measurement that may run; as long as it does, the windows are locked. It has no looks of its own
/// but those two windows.
///
/// The event loop's thread is the host's thread; the owner calls `tick` every
/// `Measurement::period`. Operations throw `PluginError`, FileError or UserError with a text for
/// the user, and leave what was there as it was.
class Workspace {
  public:
    /// Begins with an empty setup.
    explicit Workspace(WorkspaceOptions workspaceOptions);
    ~Workspace();
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

    /// An empty setup. Not in a measurement, as `open`.
    void begin();
    void open(const std::filesystem::path& path);
    /// As `SharedSetupFile::save`.
    bool save(const std::filesystem::path& path);
    /// Empty for a setup that has no file yet.
    const std::filesystem::path& getPath() const { return file.getPath(); }
    /// Whether the user has changed anything since.
    bool isModified();
    /// Says how the clock of the module in that row follows the host's. Not in a measurement.
    void chooseClock(std::size_t module, ClockChoice choice);

    /// Shown while the windows are locked.
    static constexpr const char* lockReason =
        "Locked in a measurement: stop it to add, remove or change modules or to choose which "
        "channels are used. Names and colours can be changed.";

    /// The plug-in's windows. They are other ones after `begin` and `open`.
    QtWindow& getModulesWindow() const { return *setup->modules; }
    QtWindow& getChannelsWindow() const { return *setup->channels; }
    Session& getSession() const { return *setup->session; }
    /// The modules as they are set up, with what they were last heard of.
    std::vector<Module> getModules();
    /// Those that are heard and aren't set up.
    std::vector<Module> findUnlisted() { return getSession().findUnlisted(); }
    /// Sets up one of those, with its channels. Not in a measurement.
    void addUnlisted(const Module& module);
    struct DatabaseFile {
        std::string path;
        BusType bus = BusType::Can;
    };
    /// By which databases the messages of a module's channel are decoded, from the next measurement
    /// on. Throws `UserError` for one of another bus.
    void chooseDatabases(std::size_t module, std::size_t channel,
                         const std::vector<DatabaseFile>& files);
    /// How fast that channel's bus is, from the next measurement on. Throws as `checkBitRates`.
    void chooseBitRates(std::size_t module, std::size_t channel, const BitRates& rates);
    /// A text for each CM ID or clock that several modules have.
    std::vector<std::string> findSharedIds() { return getSession().findSharedIds(); }

    /// As `WorkspaceOptions::serve`, from the next measurement on.
    void setServe(const std::string& address) { options.serve = address; }
    const std::string& getServe() const { return options.serve; }

    /// Starts a measurement; without a path it isn't recorded.
    void start(const std::filesystem::path& recording);
    /// `leavesStalledDisk`: a disk that takes nothing isn't waited for at the end.
    void requestStop(bool leavesStalledDisk = false);
    bool isMeasuring() const { return measurement != nullptr; }
    bool isEnding() const { return ending; }
    /// Of the measurement that runs, or of the last one.
    const Summary& summarize();
    bool hasLost() const { return lost; }
    /// How many messages the recording that is furthest behind hasn't taken.
    std::uint64_t countMissing() const;
    /// What it may lack all the same, a text each.
    std::vector<std::string> getGaps() const { return coverage.getGaps(); }

    /// Moves the measurement on; without one, makes the channels of modules that were changed.
    void tick(Measurement::Clock::time_point now);

    LiveFeed& getFeed() { return feed; }

  private:
    /// The windows outlive the session, whose plug-in fills them.
    struct Setup {
        ~Setup();

        std::unique_ptr<QtWindow> modules;
        std::unique_ptr<QtWindow> channels;
        std::unique_ptr<Session> session;
    };

    struct ReadDecoders;

    void listen() const;
    /// Begins to read the databases of the measurement's channels, on a thread of its own: they may
    /// be large, and a disk may take nothing. The feed gets them when they are there.
    void readDecoders();
    void takeDecoders();
    std::unique_ptr<Setup> makeSetup(const std::filesystem::path& path) const;
    void take(std::unique_ptr<Setup> fresh, SharedSetupFile itsFile);
    std::string getFingerprint() const;
    void matchChannels();
    void setLocked(bool isLocked);
    void reportGaps() const;
    std::vector<std::string> findNotRecorded() const;
    void reportAll(const std::vector<std::string>& texts) const;
    void finish();

    WorkspaceOptions options;
    std::unique_ptr<Setup> setup;
    SharedSetupFile file;
    std::string savedFingerprint;
    bool clocksChosen = false;  ///< since the setup was opened or saved
    Measurement::Clock::time_point nextLook;

    LiveFeed feed;
    FileJob reading;
    std::shared_ptr<ReadDecoders> decoders;  ///< of the job that runs
    bool isReadingStale = false;             ///< it is for another measurement
    std::shared_ptr<RecordingSet> recordings;
    std::unique_ptr<BusServer> server;  ///< null: nothing is served
    std::unique_ptr<Measurement> measurement;
    Summary summary;
    Coverage coverage;
    bool ending = false;
    bool lost = false;
};

}  // namespace station
