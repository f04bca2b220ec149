#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "station/gui/plot/plot_panel.h"
#include "station/view/signal_taps.h"

namespace station {

/// The signals of a feed that the user has put into a plot.
class LivePlot {
  public:
    /// The feed isn't owned and outlives this. The panel goes to the layout that it is put into.
    explicit LivePlot(LiveFeed& liveFeed);

    PlotPanel* getPanel() const { return panel; }
    /// `shown` is the feed, or a picture of it whose channels may be others than there are now.
    void add(const LiveFeed& shown, const SignalTaps::Signal& signal);
    /// Takes what is new, for about that long. Another measurement begins the plot again, with the
    /// signals that there still are by their names.
    void update(std::chrono::milliseconds atMost);
    /// Messages that were gone before they were looked at.
    std::uint64_t getMissed() const { return taps.getMissed(); }

  private:
    struct Plotted {
        std::size_t number;  ///< in the panel
        std::string channel;
        std::string name;
        std::uint32_t id;
        bool isExtended;
    };

    /// Whether there is such a signal.
    bool tap(const Plotted& entry);

    LiveFeed& feed;
    PlotPanel* const panel;
    SignalTaps taps;
    std::vector<Plotted> plotted;
    std::uint64_t generation = 0;  ///< of the feed, that the plot is of
};

}  // namespace station
