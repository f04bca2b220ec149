#pragma once

#include "station/toolkit/headless/headless_user.h"
#include "tests/support/toolkit_bench.h"

class HeadlessBench final : public ToolkitBench {
  public:
    static std::unique_ptr<ToolkitBench> make() { return std::make_unique<HeadlessBench>(); }
    ~HeadlessBench() override { closeWindow(); }

    Kestrova::Tessel::IWindow* window() override { return open.get(); }
    void closeWindow() override {
        if (open) {
            const auto closing = std::exchange(open, {});
            closing->close();
        }
    }

    std::vector<std::string> titles(const std::string& grid) const override {
        return user().grid(grid).titles();
    }
    std::vector<std::int32_t> shownRows(const std::string& grid) const override {
        return told([&] { return user().grid(grid).rows(); });
    }
    std::string read(const Cell& cell) const override {
        return told([&] { return user().grid(cell.grid).read(cell.row, title(cell)); });
    }
    std::vector<std::string> offers(const Cell& cell) const override {
        return told([&] { return user().grid(cell.grid).offers(cell.row, title(cell)); });
    }
    bool press(const std::string& button) const override {
        return attempt([&] { user().press(button); });
    }
    bool type(const Cell& cell, const std::string& text) const override {
        return attempt([&] { user().grid(cell.grid).type(cell.row, title(cell), text); });
    }
    bool pick(const Cell& cell, const std::string& item) const override {
        return attempt([&] { user().grid(cell.grid).pick(cell.row, title(cell), item); });
    }
    bool toggle(const Cell& cell) const override {
        return attempt([&] { user().grid(cell.grid).toggle(cell.row, title(cell)); });
    }
    bool setColor(const Cell& cell, std::uint32_t color) const override {
        return attempt([&] { user().grid(cell.grid).setColor(cell.row, title(cell), color); });
    }
    bool fold(const std::string& grid, std::int32_t row) const override {
        return attempt([&] { user().grid(grid).fold(row); });
    }
    bool select(const std::string& grid, const std::vector<std::int32_t>& rows) const override {
        return attempt([&] { user().grid(grid).select(rows); });
    }
    void passTime(std::uint32_t milliseconds) override {
        attempt([&] { user().wait(milliseconds); });
    }
    std::vector<std::uint32_t> takeFailures() override { return std::exchange(failures, {}); }

  private:
    station::HeadlessUser user() const { return station::HeadlessUser(*open); }
    std::string title(const Cell& cell) const {
        return titles(cell.grid).at(static_cast<std::size_t>(cell.column));
    }
    /// What `question` gives; empty if it fails.
    template <typename Question>
    std::invoke_result_t<Question> told(const Question& question) const {
        std::invoke_result_t<Question> answer;
        attempt([&] { answer = question(); });
        return answer;
    }
    template <typename Action>
    bool attempt(const Action& action) const {
        const auto during = open;  // an action may close it
        try {
            action();
        } catch (const station::PluginHandlerError& failed) {
            for (const auto& failure : failed.getFailures()) {
                failures.push_back(static_cast<std::uint32_t>(failure.code));
            }
        } catch (const station::UserError&) {
            return false;
        }
        return true;
    }

    CountedRef<station::HeadlessWindow> open = station::HeadlessWindow::make();
    mutable std::vector<std::uint32_t> failures;
};
