#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "station/toolkit/model/component.h"

namespace station {

/// A button; what presses it is the toolkit's user.
class IconButton final
    : public Component<Kestrova::Tessel::IIconButton, Kestrova::Tessel::IControl> {
  public:
    IconButton(std::string buttonName, FailureSinkPtr failureSink)
        : Component(std::move(buttonName), std::move(failureSink)) {}

    void press() { raise(click, "click", nullptr); }
};

/// A timer; what makes it tick is the toolkit's own. Nobody but the plug-in keeps it.
class ToolkitTimer : public Component<Kestrova::Tessel::ITimer> {
  public:
    HostResult setInterval(std::uint32_t interval) override {
        return toolkitCall([&] {
            if (interval == 0) {
                throw Kestrova::RT::Core::OutOfRangeException("a timer can't tick every 0 ms");
            }
            milliseconds = interval;
            restart();
        });
    }

  protected:
    explicit ToolkitTimer(FailureSinkPtr failureSink)
        : Component("Timer", std::move(failureSink)) {}

    std::uint32_t getInterval() const { return milliseconds; }
    void raiseTick() { raise(tick, "tick", nullptr); }
    /// The next tick comes one interval from now.
    virtual void restart() = 0;

  private:
    std::uint32_t milliseconds = defaultMilliseconds;
};

}  // namespace station
