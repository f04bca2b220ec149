#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "core/kvrt_exception.h"
#include "host/implements.h"
#include "host/toolkit.h"

namespace station {

// How the station's toolkits fail, and their texts. A toolkit throws inside; `toolkitCall` is at
// each operation that a plug-in calls.

/// Sets the calling thread's error object to that text (UTF-8) and returns the code.
HostResult failToolkit(std::uint32_t code, const std::string& text);

/// Runs the body of a toolkit's operation, out of which no exception may come. One becomes its
/// code, with its text.
template <typename Body>
HostResult toolkitCall(const Body& body) {
    namespace Core = Kestrova::RT::Core;
    try {
        body();
        return HostCode::success;
    } catch (const Core::KvrtException& failure) {
        return failToolkit(failure.getCode(), failure.what());
    } catch (const std::bad_alloc&) {
        return hostResult(Core::NoMemoryException::classCode);
    } catch (const std::exception& failure) {
        return failToolkit(Core::GeneralErrorException::classCode, failure.what());
    }
}

/// A new runtime string. Throws `std::bad_alloc`.
CountedRef<RuntimeString> makeText(const std::string& text);
/// Empty for null.
std::string textOf(RuntimeString* string);

/// A handler of the plug-in's has answered a negative code.
struct HandlerFailure {
    std::string component;  ///< its name in the window, or what it is
    std::string event;
    HostResult code = 0;

    /// For the user: what failed, and why as far as the code says.
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

    // These throw as `IComponent` says.
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
