#pragma once

#include <QPointer>
#include <QWidget>

#include "station/toolkit/qt/grid_view.h"
#include "station/toolkit/qt/qt_window.h"
#include "tests/support/toolkit_bench.h"

/// A user in front of a real window, with a mouse and a keyboard: all that he does goes through
/// events of Qt's.
class QtUser {
  public:
    explicit QtUser(station::QtWindow& toolkitWindow) : window(&toolkitWindow) {}

    /// Null for a name that is no grid's.
    station::GridView* view(const std::string& grid) const;
    CountedRef<station::DrawGrid> model(const std::string& grid) const;
    std::vector<std::int32_t> shownRows(const std::string& grid) const;
    std::string read(const std::string& grid, std::int32_t row, std::int32_t column) const;
    std::vector<std::string> offers(const std::string& grid, std::int32_t row,
                                    std::int32_t column) const;
    bool press(const std::string& button) const;
    bool type(const std::string& grid, std::int32_t row, std::int32_t column,
              const std::string& text) const;
    bool pick(const std::string& grid, std::int32_t row, std::int32_t column,
              const std::string& item) const;
    bool toggle(const std::string& grid, std::int32_t row, std::int32_t column) const;
    bool setColor(const std::string& grid, std::int32_t row, std::int32_t column,
                  std::uint32_t color) const;
    bool fold(const std::string& grid, std::int32_t row) const;
    bool select(const std::string& grid, const std::vector<std::int32_t>& rows) const;

    /// The cell as the model has it, in sight and up to date; invalid for one that isn't shown.
    QModelIndex show(const std::string& grid, std::int32_t row, std::int32_t column) const;
    /// Lets all that is under way happen, what is to be deleted later included.
    static void settle();

  private:
    bool click(const std::string& grid, std::int32_t row, std::int32_t column,
               Qt::KeyboardModifiers modifiers = {}) const;
    bool isOfType(const std::string& grid, std::int32_t row, std::int32_t column,
                  std::int32_t type) const;

    QPointer<station::QtWindow> window;
};

class QtBench final : public ToolkitBench {
  public:
    static std::unique_ptr<ToolkitBench> make() { return std::make_unique<QtBench>(); }
    QtBench();
    ~QtBench() override;

    QtUser user() const { return QtUser(*widget); }
    station::QtWindow* place() const { return widget; }

    Kestrova::Tessel::IWindow* window() override {
        return widget != nullptr ? &widget->window() : nullptr;
    }
    void closeWindow() override { delete std::exchange(widget, nullptr); }

    std::vector<std::string> titles(const std::string& grid) override;
    std::vector<std::int32_t> shownRows(const std::string& grid) override {
        return user().shownRows(grid);
    }
    std::string read(const std::string& grid, std::int32_t row, std::int32_t column) override {
        return user().read(grid, row, column);
    }
    std::vector<std::string> offers(const std::string& grid, std::int32_t row,
                                    std::int32_t column) override {
        return user().offers(grid, row, column);
    }
    bool press(const std::string& button) override { return user().press(button); }
    bool type(const std::string& grid, std::int32_t row, std::int32_t column,
              const std::string& text) override {
        return user().type(grid, row, column, text);
    }
    bool pick(const std::string& grid, std::int32_t row, std::int32_t column,
              const std::string& item) override {
        return user().pick(grid, row, column, item);
    }
    bool toggle(const std::string& grid, std::int32_t row, std::int32_t column) override {
        return user().toggle(grid, row, column);
    }
    bool setColor(const std::string& grid, std::int32_t row, std::int32_t column,
                  std::uint32_t color) override {
        return user().setColor(grid, row, column, color);
    }
    bool fold(const std::string& grid, std::int32_t row) override { return user().fold(grid, row); }
    bool select(const std::string& grid, const std::vector<std::int32_t>& rows) override {
        return user().select(grid, rows);
    }
    void passTime(std::uint32_t milliseconds) override;
    std::vector<std::uint32_t> takeFailures() override { return std::exchange(failures, {}); }

  private:
    station::QtWindow* widget;
    std::vector<std::uint32_t> failures;
};
