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
        std::vector<std::int32_t> rows;
        attempt([&] { rows = user().grid(grid).rows(); });
        return rows;
    }
    std::string read(const std::string& grid, std::int32_t row,
                     std::int32_t column) const override {
        std::string text;
        attempt([&] { text = user().grid(grid).read(row, title(grid, column)); });
        return text;
    }
    std::vector<std::string> offers(const std::string& grid, std::int32_t row,
                                    std::int32_t column) const override {
        std::vector<std::string> items;
        attempt([&] { items = user().grid(grid).offers(row, title(grid, column)); });
        return items;
    }
    bool press(const std::string& button) const override {
        return attempt([&] { user().press(button); });
    }
    bool type(const std::string& grid, std::int32_t row, std::int32_t column,
              const std::string& text) const override {
        return attempt([&] { user().grid(grid).type(row, title(grid, column), text); });
    }
    bool pick(const std::string& grid, std::int32_t row, std::int32_t column,
              const std::string& item) const override {
        return attempt([&] { user().grid(grid).pick(row, title(grid, column), item); });
    }
    bool toggle(const std::string& grid, std::int32_t row, std::int32_t column) const override {
        return attempt([&] { user().grid(grid).toggle(row, title(grid, column)); });
    }
    bool setColor(const std::string& grid, std::int32_t row, std::int32_t column,
                  std::uint32_t color) const override {
        return attempt([&] { user().grid(grid).setColor(row, title(grid, column), color); });
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
    std::string title(const std::string& grid, std::int32_t column) const {
        return titles(grid).at(static_cast<std::size_t>(column));
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
