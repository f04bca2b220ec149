#pragma once

#include "station/toolkit/model/toolkit_window.h"
#include "tests/support/toolkit_rig.h"

/// A window that nobody sees, with a user, in a time that passes when told.
class HeadlessRig final : public ToolkitRig {
  public:
    static std::unique_ptr<ToolkitRig> make() { return std::make_unique<HeadlessRig>(); }
    HeadlessRig();
    ~HeadlessRig() override { closeWindow(); }

    Kestrova::Tessel::IWindow* window() override { return open.get(); }
    void closeWindow() override;
    std::vector<std::string> titles(const std::string& grid) const override;
    std::vector<std::int32_t> shownRows(const std::string& grid) const override;
    std::string read(const Cell& cell) const override;
    std::vector<std::string> offers(const Cell& cell) const override;
    bool press(const std::string& button) const override;
    bool type(const Cell& cell, const std::string& text) const override;
    bool pick(const Cell& cell, const std::string& item) const override;
    bool toggle(const Cell& cell) const override;
    bool setColor(const Cell& cell, std::uint32_t color) const override;
    bool fold(const std::string& grid, std::int32_t row) const override;
    bool select(const std::string& grid, const std::vector<std::int32_t>& rows) const override;
    /// In the order of the timers' times. A plug-in that makes timers in a tick can't hold it up
    /// for ever: what is due after `milliseconds` waits.
    void passTime(std::uint32_t milliseconds) override;
    std::vector<std::uint32_t> takeFailures() override { return std::exchange(*failures, {}); }

  private:
    using Rows = std::map<std::int32_t, std::vector<station::CellContent>>;
    class Timer;
    class Window;
    /// The time, and the timers that there are, which leave by themselves.
    struct Clock {
        std::uint64_t now = 0;  ///< milliseconds
        std::vector<Timer*> timers;
    };

    /// Null for a name that is no grid's.
    CountedRef<station::DrawGrid> find(const std::string& grid) const;
    /// Asks for the cells of the rows that are shown.
    Rows look(const std::string& grid) const;
    std::optional<station::CellContent> look(const Cell& cell) const;
    /// False, without an input, for a cell that isn't of one of the types.
    bool input(const Cell& cell, std::initializer_list<std::int32_t> types,
               const station::CellInput& what) const;

    const std::shared_ptr<Clock> clock = std::make_shared<Clock>();
    const std::shared_ptr<std::vector<std::uint32_t>> failures =
        std::make_shared<std::vector<std::uint32_t>>();
    CountedRef<station::ToolkitWindow> open;
};
