#pragma once

#include <string>
#include <vector>

#include "host/plugin.h"
#include "station/session/summary.h"

namespace station {

/// What a measurement may lack although nothing is known to be lost: traffic of modules and
/// interfaces that were silent for a time, and of channels that aren't recorded, frames that are
/// missing in a sequence counter or malformed, messages that can't be delivered, and times that
/// may be wrong. It only grows until the next measurement begins.
class Coverage {
  public:
    /// A measurement begins. `notRecorded`: what its recordings can't hold, a text each.
    void begin(std::vector<std::string> notRecorded);
    /// In place of what was said of the module before; without a text that doesn't hold any more.
    struct News {
        std::string text;
        std::string module;
    };
    /// Several times a second while the plug-in measures. Returns what the user must know since the
    /// last call: modules that fall silent and come back.
    std::vector<News> look(const Summary& summary,
                           const std::vector<ChannelStatistics>& statistics);

    /// The same at any time, also at the end: what isn't silence, and so needs no message here.
    void note(const Summary& summary);

    /// A text for each gap, none if all that came in can be there.
    std::vector<std::string> getGaps() const;

  private:
    struct Watched {
        std::string name;
        bool isHeard = false;
        bool isSilent = false;
        bool wasSilent = false;
        bool hasStood = false;  ///< its device time has
    };

    static std::vector<std::string> findBusyUnused(
        const Summary& summary, const std::vector<ChannelStatistics>& statistics);

    std::vector<std::string> left;  ///< out of recordings
    std::vector<Watched> modules;
    std::vector<std::string> doubts;  ///< of what did come
    std::vector<std::string> unused;  ///< channels that aren't used, and get messages
    bool hasInterfaceGap = false;
};

}  // namespace station
