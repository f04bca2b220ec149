#pragma once

#include <QPointer>
#include <QWidget>

#include "station/toolkit/qt/grid_view.h"
#include "station/toolkit/qt/qt_window.h"
#include "tests/support/toolkit_rig.h"

/// A user in front of a real window, with a mouse and a keyboard: all that he does goes through
/// events of Qt's.
class QtUser : public virtual ToolkitUser {
  public:
    QtUser() = default;
    explicit QtUser(station::QtWindow& toolkitWindow) : toolkit(&toolkitWindow) {}

    /// Null for a name that is no grid's.
    station::GridView* view(const std::string& grid) const;
    CountedRef<station::DrawGrid> model(const std::string& grid) const;
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

    /// The cell as the model has it, in sight and up to date; invalid for one that isn't shown.
    QModelIndex show(const Cell& cell) const;
    /// Lets all that is under way happen, what is to be deleted later included.
    static void settle();

  protected:
    QPointer<station::QtWindow> toolkit;

  private:
    bool click(const Cell& cell, Qt::KeyboardModifiers modifiers = {}) const;
    bool isOfType(const Cell& cell, std::int32_t type) const;
};

class QtRig final : public ToolkitRig, public QtUser {
  public:
    static std::unique_ptr<ToolkitRig> make() { return std::make_unique<QtRig>(); }
    QtRig();
    ~QtRig() override;

    station::QtWindow* place() const { return widget; }

    Kestrova::Tessel::IWindow* window() override {
        return widget != nullptr ? &widget->window() : nullptr;
    }
    void closeWindow() override { delete std::exchange(widget, nullptr); }
    std::vector<std::string> titles(const std::string& grid) const override;
    void passTime(std::uint32_t milliseconds) override;
    std::vector<std::uint32_t> takeFailures() override { return std::exchange(failures, {}); }

  private:
    station::QtWindow* widget;
    std::vector<std::uint32_t> failures;
};
