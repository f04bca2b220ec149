#pragma once

#include "tests/support/headless_window.h"
#include "tests/support/toolkit_bench.h"

/// A user of a window that nobody sees, in a time that passes when told.
class HeadlessBench final : public ToolkitBench {
  public:
    static std::unique_ptr<ToolkitBench> make() { return std::make_unique<HeadlessBench>(); }
    ~HeadlessBench() override { closeWindow(); }

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
    void passTime(std::uint32_t milliseconds) override;
    std::vector<std::uint32_t> takeFailures() override { return std::exchange(failures, {}); }

  private:
    /// What the cell shows; nothing for one that isn't on the screen.
    std::optional<station::CellContent> look(const Cell& cell) const;
    bool isOfType(const Cell& cell, std::initializer_list<std::int32_t> types) const;
    /// Runs `action`, which may close the window, and keeps what failed in it.
    template <typename Action>
    auto run(const Action& action) const;

    CountedRef<station::HeadlessWindow> open = station::HeadlessWindow::make();
    mutable std::vector<std::uint32_t> failures;
};
