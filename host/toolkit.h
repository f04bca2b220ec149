#pragma once

#include <cstdint>

#include "host/runtime.h"

/// The host's window toolkit Tessel: it builds a window from XML, owns all that is in it, and
/// raises events for what the user does. This header has the window and what is not a grid;
/// "host/toolkit_grid.h" has the grid.
///
/// What holds for all of it, beside the rules of "host/host_object.h":
///
/// - **Texts** go in and come out as runtime strings. Null that goes in means an empty text. A
///   string that comes out is handed over and never null.
/// - **Failures** have the codes of "core/kvrt_exception.h". A failing operation sets the calling
///   thread's error object (`RuntimeLibrary::kvRtSetErrorInfo`) with a text for people: what was
///   wrong and what there is instead.
/// - **Threads**: all is called, and calls back, on the host's one thread. Only the reference
/// counts
///   may be changed by any.
/// - **The runtime library** is found by a query on the window for `RuntimeLibrary`.
///
/// Who keeps what alive:
///
/// - A window owns the controls of its XML, a grid its columns and groups. They go when the window
///   goes or `setXml` builds another content, groups also when the grid asks for its groups again.
///   A reference from outside keeps such an object a little longer, as one that nobody sees: its
///   operations succeed as before, and it raises no events any more.
/// - A component keeps the handlers subscribed to it, with a reference, until it goes. Nobody has
/// to
///   unsubscribe.
/// - A timer belongs to whoever has made it: it ends with the last reference from outside.
/// - In a handler anything may happen: the control it came from, its window, its timer may go, the
///   handler may be unsubscribed and others subscribed. So for the length of one event the toolkit
///   holds references of its own to the component, to the argument and to the handlers that were
///   there at the beginning, and looks at what is left afterwards.
/// - A plug-in's handlers may outlast the plug-in's own window object, as the host's window may
///   outlast it; called then, they do nothing and succeed.
///
/// A handler that answers a negative code has failed. The toolkit shows the user that it did, with
/// the code, and goes on as after a good one; there is no text.
namespace Kestrova::Tessel {

class IComponent;
class IEventArgs;

/// The namespace of a window's XML, for the attribute `xmlns` of its root. A toolkit doesn't insist
/// on it.
inline constexpr const char* xmlNamespace = "urn:kestrova:tessel";

/// What the toolkit calls when something happens. Whoever subscribes implements it.
///
/// Two handlers are `equals` if they call the same operation of the same object: so the toolkit
/// finds the one to remove in `IComponent::unsubscribe`.
class IEventHandler : public RuntimeObject {
  public:
    static constexpr InterfaceId id{
        0x95B0EA64, 0xE480, 0x4B6B, {0xA2, 0x3B, 0x31, 0x6B, 0xC4, 0x7D, 0x04, 0xBF}};

    /// `sender` is the component that raises the event. `args` is null where the event's
    /// description names no argument; both are there for the length of the call.
    virtual HostResult handle(IComponent* sender, IEventArgs* args) = 0;

  protected:
    ~IEventHandler() = default;
};

/// What an event says: the base of all argument interfaces. A reference that is kept longer than
/// the event keeps an object without effect.
class IEventArgs : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x1745D7AB, 0x020F, 0x4C6D, {0xB0, 0x15, 0x46, 0x3D, 0xF7, 0x40, 0xC9, 0xD4}};

  protected:
    ~IEventArgs() = default;
};

/// Anything that the toolkit hands out. It raises events, each in a slot of its own; the slots of a
/// component are numbered from 1 in a fixed order, which its interface gives.
///
/// A slot takes any number of handlers and calls them in the order of their subscription; one that
/// fails doesn't keep the others from being called.
class IComponent : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x3333D084, 0x932E, 0x40AD, {0x9B, 0x54, 0x09, 0x89, 0x1D, 0xD8, 0x2B, 0x7C}};

    /// `OutOfRangeException` for a slot that there isn't, `ArgumentNullException` for no handler.
    virtual HostResult subscribe(std::int32_t slot, IEventHandler* handler) = 0;
    /// Removes the first handler of the slot that `equals` this one. Fails as `subscribe`, and with
    /// `NotFoundException` if there is none.
    virtual HostResult unsubscribe(std::int32_t slot, IEventHandler* handler) = 0;

  protected:
    ~IComponent() = default;
};

/// A component that is seen in a window.
class IControl : public IComponent {
  public:
    static constexpr InterfaceId id{
        0x9ACBD34A, 0xF70B, 0x41A7, {0x84, 0x2E, 0x05, 0xD2, 0x2B, 0x55, 0x76, 0x1B}};

  protected:
    ~IControl() = default;
};

/// A control that has others in it.
class IParentControl : public IControl {
  public:
    static constexpr InterfaceId id{
        0x0187BD79, 0x0F46, 0x486C, {0x8A, 0x79, 0xC8, 0xB4, 0x5F, 0x7B, 0x92, 0x19}};

    /// The control of that name at any depth; the same object each time. `NotFoundException` if
    /// there is none.
    virtual HostResult findControl(RuntimeString* name, IControl** control) = 0;

  protected:
    ~IParentControl() = default;
};

/// A control whose content is given as XML.
///
/// The vocabulary, all of which a toolkit has to know; names are as written, and an attribute that
/// it doesn't know is no failure:
///
/// | Element        | What it is                            | Attributes                        |
/// |----------------|---------------------------------------|-----------------------------------|
/// | `Window`       | the root, one child                   | `Name`, `Background`              |
/// | `CaptionPanel` | a frame with a title, one child       | `Title`                           |
/// | `Grid`         | rows and columns that hold controls   | `Rows`, `Columns`                 |
/// | `IconButton`   | an `IIconButton`                      | `IconName`: "ADD" or "REMOVE"     |
/// | `KVDrawGrid`   | an `IDrawGrid`                        |                                   |
///
/// `Rows` and `Columns` are lists of sizes with commas: a number is pixels, "100%" a share of what
/// is left. Every child of a `Grid` may have `Row`, `Column` (from 0, default 0), `RowSpan` and
/// `ColumnSpan` (default 1); a place behind the last row or column means the last one. Every
/// element but the root may have a `Name` for `findControl`, each once in a window. An icon without
/// a picture is shown by its name. `Background` is the name of a colour.
class IContentControl : public IParentControl {
  public:
    static constexpr InterfaceId id{
        0x6B151570, 0x3878, 0x4D91, {0xA0, 0xB1, 0x52, 0xA6, 0x35, 0x9B, 0xD7, 0xF7}};

    /// Replaces the content. `ParseFailedException` for what is no XML of this vocabulary, and the
    /// old content stays.
    virtual HostResult setXml(RuntimeString* xml) = 0;

  protected:
    ~IContentControl() = default;
};

/// A window, or a place in one of the host's, that a plug-in fills. It comes as the object in the
/// input of the events that make a window, and also answers a query for `IControlFactory` and
/// `RuntimeLibrary`.
class IWindow : public IContentControl {
  public:
    static constexpr InterfaceId id{
        0xE2EA0A5A, 0xA479, 0x4818, {0x95, 0xF4, 0x4D, 0xE4, 0xEE, 0x09, 0xD1, 0xDC}};
    static constexpr std::int32_t slotCount = 0;

  protected:
    ~IWindow() = default;
};

/// A button that shows an icon.
class IIconButton : public IControl {
  public:
    static constexpr InterfaceId id{
        0xDC1F965F, 0x8995, 0x4D57, {0xB7, 0xFA, 0x4B, 0xD7, 0x98, 0x7A, 0x1E, 0xAC}};
    /// The user has pressed it. No argument.
    static constexpr std::int32_t click = 1;
    static constexpr std::int32_t slotCount = 1;

  protected:
    ~IIconButton() = default;
};

/// Makes components that aren't in the XML.
class IControlFactory : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x4CC5EAF1, 0xDF1C, 0x4833, {0x97, 0xA9, 0xBA, 0x92, 0x94, 0x86, 0x93, 0x56}};

    /// "Timer" gives an `ITimer`; the second text has no meaning for it. `NotFoundException` for
    /// another type.
    virtual HostResult create(RuntimeString* typeName, RuntimeString* text,
                              IComponent** component) = 0;

  protected:
    ~IControlFactory() = default;
};

/// Raises an event periodically, on the host's thread, from its construction to its end: there is
/// no start and no stop. Ticks that can't be raised in time are left out and not made up for.
class ITimer : public IComponent {
  public:
    static constexpr InterfaceId id{
        0xC7873C1D, 0xBAAC, 0x4C99, {0x93, 0x79, 0xD6, 0x28, 0x13, 0x67, 0x28, 0xD0}};
    /// No argument.
    static constexpr std::int32_t tick = 1;
    static constexpr std::int32_t slotCount = 1;
    /// Of a timer that wasn't given another interval.
    static constexpr std::uint32_t defaultMilliseconds = 1000;

    /// The next tick comes one interval from now. `OutOfRangeException` for 0.
    virtual HostResult setInterval(std::uint32_t milliseconds) = 0;

  protected:
    ~ITimer() = default;
};

}  // namespace Kestrova::Tessel
