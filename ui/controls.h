#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "host/toolkit.h"
#include "host/toolkit_grid.h"
#include "ui/event_handler.h"
#include "ui/object_ptr.h"

/// Adapters to the toolkit's objects, with the operations that the windows use. Each is a reference
/// and as cheap to copy as one. Host's thread only, as the toolkit.
namespace Kestrova::Tessel {

class DrawGridCellActionEventArgs;
class DrawGridCellInputArgs;
class DrawGridCellPropsArgs;
class DrawGridComboItemsArgs;
class DrawGridLiveValueArgs;
class DrawGridSetGroupsArgs;

/// The base of the arguments of events; null where an event has none.
template <typename I>
class EventArgsPtr : public RT::Core::ObjectPtr<I> {
  public:
    EventArgsPtr() = default;
    explicit EventArgsPtr(RT::Core::ObjectPtr<I> args) : RT::Core::ObjectPtr<I>(std::move(args)) {}
};
using NoArgs = EventArgsPtr<IEventArgs>;

template <typename I>
class ComponentPtr : public RT::Core::ObjectPtr<I> {
  public:
    ComponentPtr() = default;
    explicit ComponentPtr(RT::Core::ObjectPtr<I> object)
        : RT::Core::ObjectPtr<I>(std::move(object)) {}

  protected:
    /// The slot of that number; `self` is this adapter as its class.
    template <typename Args, typename Self>
    static EventSlot<Self, Args> slot(const Self* self, std::int32_t number) {
        return {[self, number](IEventHandler* handler) {
                    return self->target().subscribe(number, handler);
                },
                [self, number](IEventHandler* handler) {
                    return self->target().unsubscribe(number, handler);
                },
                self};
    }
};

template <typename I>
class ControlPtr : public ComponentPtr<I> {
  public:
    using ComponentPtr<I>::ComponentPtr;
};

template <typename I>
class ParentControlPtr : public ControlPtr<I> {
  public:
    using ControlPtr<I>::ControlPtr;

    RT::Core::ObjectPtr<IControl> findControl(const std::string& name) const {
        return this->object(&IParentControl::findControl,
                            RT::Core::StringPtr(this->getRuntime(), name).get());
    }
};

template <typename I>
class ContentControlPtr : public ParentControlPtr<I> {
  public:
    using ParentControlPtr<I>::ParentControlPtr;

    void setXml(const std::string& xml) const {
        this->call(&IContentControl::setXml, RT::Core::StringPtr(this->getRuntime(), xml).get());
    }
};

/// The host's window.
using WindowPtr = ContentControlPtr<IWindow>;

/// The window that a host has handed over, with the runtime library that it names; null for null.
/// Throws for an object that is no window, or a window without a runtime library.
inline WindowPtr hostWindow(HostObject* object) {
    CountedRef<IWindow> window;
    RT::Core::RuntimePtr runtime;
    if (object == nullptr) {
        return {};
    }
    HostResult result = CountedRef<HostObject>(object).queryTo(window);
    if (result >= 0) {
        result = window.queryTo(runtime);
    }
    if (result < 0) {
        RT::Core::raiseFromCode(static_cast<std::uint32_t>(result),
                                window ? "The host's window names no runtime library."
                                       : "The host's object is not a window of its toolkit.");
    }
    return WindowPtr({std::move(runtime), std::move(window)});
}

/// The control of that name and kind. Throws if there is none.
template <typename I>
RT::Core::ObjectPtr<I> findControl(const WindowPtr& window, const std::string& name) {
    if (!window) {
        throw RT::Core::InvalidParameterException("Window must not be null.");
    }
    return window.findControl(name).query<I>();
}

class DrawGridColumn : public ComponentPtr<IDrawGridColumn> {
  public:
    using ComponentPtr::ComponentPtr;

    void setFlagA(bool flag) const { call(&IDrawGridColumn::setFlagA, toHostBool(flag)); }
    void setFlagB(bool flag) const { call(&IDrawGridColumn::setFlagB, toHostBool(flag)); }
};

class DrawGridGroup : public ComponentPtr<IDrawGridGroup> {
  public:
    using ComponentPtr::ComponentPtr;

    std::string getName() const {
        return RT::Core::StringPtr(object(&IDrawGridGroup::getName)).getText();
    }
    auto expansionChanged() const { return slot<NoArgs>(this, IDrawGridGroup::expansionChanged); }
};

/// The grid; of its thirteen events, those that the windows use.
class KVDrawGrid : public ControlPtr<IDrawGrid> {
  public:
    using ControlPtr::ControlPtr;
    KVDrawGrid(const WindowPtr& window, const std::string& name)
        : ControlPtr(Tessel::findControl<IDrawGrid>(window, name)) {}

    /// Rows are counted with the header.
    void initialise(std::int32_t rows, std::int32_t columns) const {
        call(&IDrawGrid::initialise, rows, columns);
    }
    void setColumn(std::int32_t index, const std::string& title, std::int32_t cellType,
                   std::int32_t one, std::int32_t width, const std::string& name) const {
        call(&IDrawGrid::setColumn, index, RT::Core::StringPtr(getRuntime(), title).get(), cellType,
             one, width, RT::Core::StringPtr(getRuntime(), name).get());
    }
    DrawGridColumn getColumn(std::int32_t index) const {
        return DrawGridColumn(object(&IDrawGrid::getColumn, index));
    }
    void endColumns() const { call(&IDrawGrid::endColumns); }
    void setRowCount(std::int32_t rows) const { call(&IDrawGrid::setRowCount, rows); }
    void refresh() const { call(&IDrawGrid::refresh); }
    std::int32_t getRowCount() const { return value(&IDrawGrid::getRowCount); }
    bool isRowSelected(std::int32_t row) const {
        return isTrue(value(&IDrawGrid::isRowSelected, row));
    }

    auto cellProps() const { return event<DrawGridCellPropsArgs>(IDrawGrid::cellProps); }
    auto comboItems() const { return event<DrawGridComboItemsArgs>(IDrawGrid::comboItems); }
    auto liveValue() const { return event<DrawGridLiveValueArgs>(IDrawGrid::liveValue); }
    auto cellAction() const { return event<DrawGridCellActionEventArgs>(IDrawGrid::cellAction); }
    auto cellInput() const { return event<DrawGridCellInputArgs>(IDrawGrid::cellInput); }
    auto setGroups() const { return event<DrawGridSetGroupsArgs>(IDrawGrid::setGroups); }

  private:
    template <typename Args>
    EventSlot<KVDrawGrid, Args> event(std::int32_t number) const {
        return slot<Args>(this, number);
    }
};

class IconButton : public ControlPtr<IIconButton> {
  public:
    using ControlPtr::ControlPtr;
    IconButton(const WindowPtr& window, const std::string& name)
        : ControlPtr(Tessel::findControl<IIconButton>(window, name)) {}

    auto click() const { return slot<NoArgs>(this, IIconButton::click); }
};

class ControlFactory : public RT::Core::ObjectPtr<IControlFactory> {
  public:
    ControlFactory() = default;
    explicit ControlFactory(const WindowPtr& window) : ObjectPtr(window.query<IControlFactory>()) {}

    RT::Core::ObjectPtr<IComponent> create(const std::string& typeName,
                                           const std::string& text) const {
        return object(&IControlFactory::create, RT::Core::StringPtr(getRuntime(), typeName).get(),
                      RT::Core::StringPtr(getRuntime(), text).get());
    }
};

/// Ticks from its construction on, as long as this adapter or a copy is there.
class Timer : public ComponentPtr<ITimer> {
  public:
    using ComponentPtr::ComponentPtr;
    explicit Timer(const ControlFactory& factory) : ComponentPtr(create(factory)) {}

    void setInterval(std::uint32_t milliseconds) const { call(&ITimer::setInterval, milliseconds); }
    auto tick() const { return slot<NoArgs>(this, ITimer::tick); }

  private:
    static RT::Core::ObjectPtr<ITimer> create(const ControlFactory& factory) {
        if (!factory) {
            throw RT::Core::InvalidParameterException("ControlFactory must not be null.");
        }
        return factory.create("Timer", "").query<ITimer>();
    }
};

}  // namespace Kestrova::Tessel
