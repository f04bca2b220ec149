#pragma once

#include <QString>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "station/gui/live_feed.h"
#include "station/session/measurement.h"
#include "station/toolkit/qt/qt_window.h"

namespace station {

struct WorkspaceOptions {
    std::filesystem::path plugin;  ///< empty: the registered one, else the one beside the program
    double sampleRate = MasterClock::defaultSampleRate;
    /// Gets what the user must know; called at any time on the host's thread.
    std::function<void(const std::string&)> onMessage;
};

/// What the desktop program works on: one setup in a session, with the plug-in's windows, and the
/// measurement that may run. It has no looks of its own but those two windows.
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
    void save(const std::filesystem::path& path);
    /// Empty for a setup that has no file yet.
    const std::filesystem::path& getPath() const { return path; }
    /// Whether the user has changed anything since.
    bool isModified();
    /// Says how the clock of the module in that row follows the host's. Not in a measurement.
    void chooseClock(std::size_t module, ClockChoice choice);

    /// The plug-in's windows. They are other ones after `begin` and `open`.
    QtWindow& modulesWindow() const { return *setup->modules; }
    QtWindow& channelsWindow() const { return *setup->channels; }
    Session& session() const { return *setup->session; }

    /// Starts a measurement; without a path it isn't recorded.
    void start(const std::filesystem::path& recording);
    /// `leavesStalledDisk`: a disk that takes nothing isn't waited for at the end.
    void requestStop(bool leavesStalledDisk = false);
    bool isMeasuring() const { return measurement != nullptr; }
    bool isEnding() const { return ending; }
    /// Of the measurement that runs, or of the last one.
    const Summary& summarize();
    bool hasLost() const { return lost; }

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

    std::unique_ptr<Setup> makeSetup(const std::filesystem::path& file) const;
    void take(std::unique_ptr<Setup> fresh, std::filesystem::path file);
    std::string fingerprint() const;
    void matchChannels();
    void tellLeftOut() const;
    void tellAll(const std::vector<std::string>& texts) const;
    void finish();

    const WorkspaceOptions options;
    std::unique_ptr<Setup> setup;
    std::filesystem::path path;
    std::string savedFingerprint;
    bool clocksChosen = false;  ///< since the setup was opened or saved
    Measurement::Clock::time_point nextLook;

    LiveFeed feed;
    std::shared_ptr<RecordingSet> recordings;
    std::unique_ptr<Measurement> measurement;
    Summary summary;
    bool ending = false;
    bool lost = false;
};

}  // namespace station
