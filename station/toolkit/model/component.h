#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/implements.h"
#include "host/toolkit.h"
#include "station/toolkit/model/toolkit_failure.h"

namespace station {

/// A handler of the plug-in's has answered a negative code.
struct HandlerFailure {
    std::string component;  ///< its name in the window, or what it is
    std::string event;
    HostResult code = 0;

    /// For the user: what failed, and why as far as the code tells.
    std::string text() const;
};

/// Where failures of handlers go; whoever has made the window shows them to the user.
using FailureSink = std::function<void(const HandlerFailure&)>;
using FailureSinkPtr = std::shared_ptr<const FailureSink>;

/// The handlers of one component, by slot.
class EventSlots {
  public:
    using Handlers = std::vector<CountedRef<Kestrova::Tessel::IEventHandler>>;

    explicit EventSlots(std::int32_t count) : slots(static_cast<std::size_t>(count)) {}

    // These throw what `IComponent` tells.
    void subscribe(std::int32_t slot, Kestrova::Tessel::IEventHandler* handler);
    void unsubscribe(std::int32_t slot, Kestrova::Tessel::IEventHandler* handler);
    const Handlers& at(std::int32_t slot) const;
    void clear();

  private:
    Handlers& check(std::int32_t slot, const Kestrova::Tessel::IEventHandler* handler);

    std::vector<Handlers> slots;
};

/// A component of the station's toolkits: the handlers subscribed to it and the raising of events.
/// All that is in a toolkit derives from it; what is seen is the toolkit's own.
template <typename Interface, typename... Bases>
class Component : public Implements<Interface, Bases..., Kestrova::Tessel::IComponent> {
  public:
    HostResult subscribe(std::int32_t slot, Kestrova::Tessel::IEventHandler* handler) override {
        return toolkitCall([&] {
            slots.subscribe(slot, handler);
            if (detached) {
                slots.clear();
            }
        });
    }
    HostResult unsubscribe(std::int32_t slot, Kestrova::Tessel::IEventHandler* handler) override {
        return toolkitCall([&] { slots.unsubscribe(slot, handler); });
    }

    /// Drops the handlers for good: the component has left its window.
    void detach() {
        detached = true;
        slots.clear();
    }
    /// What the component is called in messages: its name, or what it is.
    const std::string& label() const { return name; }

  protected:
    Component(std::string componentName, FailureSinkPtr failureSink)
        : name(std::move(componentName)),
          sink(std::move(failureSink)),
          slots(Interface::slotCount) {}

    /// Calls the handlers, of which each may end this component, its window, or other handlers.
    void raise(std::int32_t slot, const char* event, Kestrova::Tessel::IEventArgs* args) {
        if (detached) {
            return;
        }
        const CountedRef<Component> self(this);
        const EventSlots::Handlers handlers = slots.at(slot);
        const FailureSinkPtr reportTo = sink;
        for (const auto& handler : handlers) {
            const HostResult code = handler->handle(this, args);
            if (code < 0 && reportTo) {
                (*reportTo)({name, event, code});
            }
        }
    }

    const std::string name;
    const FailureSinkPtr sink;

  private:
    EventSlots slots;
    bool detached = false;
};

}  // namespace station
