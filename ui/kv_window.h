#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "ui/controls.h"
#include "ui/event_args.h"

namespace Kestrova::Tessel {

/// A column of a grid as a window describes it.
struct GridColumn {
    const char* name;
    const char* title;
    std::int32_t cellType;
    std::int32_t width;  ///< pixels
    std::optional<bool> flagA = {};
    std::optional<bool> flagB = {};
};

/// A window of the plug-in's: the host's window with the content that the plug-in gives it. Its
/// handlers are called on the host's thread.
///
/// The host's window and its controls may outlast this object, and the user can do something there
/// whose consequence is its end. So it is made by `make` only: the handlers do nothing any more
/// when its owner has let go of it, and one that is running keeps it until it is through.
class KVWindow {
  public:
    virtual ~KVWindow() = default;
    KVWindow(const KVWindow&) = delete;
    KVWindow& operator=(const KVWindow&) = delete;

    /// A window W, which is made with what names its life, behind these arguments. What its
    /// construction throws comes out, and its handlers are dead then.
    template <typename W, typename... Arguments>
    static std::shared_ptr<W> make(Arguments&&... arguments) {
        const auto place = std::make_shared<std::optional<W>>();
        place->emplace(std::forward<Arguments>(arguments)..., std::weak_ptr<void>(place));
        return {place, &**place};
    }

  protected:
    /// Loads the XML into the window, if there is one.
    KVWindow(WindowPtr hostWindow, const std::string& resourceName, std::weak_ptr<void> windowLife);

    /// Makes an operation of this window the handler of an event.
    template <typename Window, typename Sender, typename Args>
    void on(const EventSlot<Sender, Args>& slot,
            void (Window::*operation)(const Sender&, const Args&)) {
        slot.subscribe(bindHandler(life, static_cast<Window*>(this), operation));
    }

    /// Gives the grid its rows, counted with the header, and columns.
    static void describe(const KVDrawGrid& grid, std::size_t rows,
                         std::span<const GridColumn> columns);
    /// A timer that ticks as often as live values shall be seen.
    Timer makeTimer() const;

    const WindowPtr window;

  private:
    const std::weak_ptr<void> life;
};

/// A row or a count of rows, as the toolkit takes it.
constexpr std::int32_t toRow(std::size_t number) {
    return static_cast<std::int32_t>(number);
}

}  // namespace Kestrova::Tessel
