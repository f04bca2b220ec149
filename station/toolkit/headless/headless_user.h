#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "station/toolkit/headless/headless_window.h"

namespace station {

/// What a user tried can't be done; the text says why, and what can be done instead.
class UserError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What the user did was done, and the plug-in failed at it.
class PluginHandlerError : public UserError {
  public:
    explicit PluginHandlerError(std::vector<HandlerFailure> failed);

    const std::vector<HandlerFailure>& getFailures() const { return failures; }

  private:
    std::vector<HandlerFailure> failures;
};

/// A user in front of one grid. Rows are those on the screen, from 1; columns go by their title.
///
/// He can do what a cell's type allows and nothing else: the rest is a `UserError`. Each operation
/// throws `PluginHandlerError` when a handler failed in it, after it is done.
class GridUser {
  public:
    GridUser(HeadlessWindow& ofWindow, std::string gridName)
        : window(ofWindow), name(std::move(gridName)) {}

    std::vector<std::string> titles() const;
    /// The rows that aren't hidden in a folded group.
    std::vector<std::int32_t> rows() const;

    /// What a cell shows, as text: a colour as six hexadecimal digits, an expander as "-" where its
    /// group is unfolded and "+" where it is folded.
    std::string read(std::int32_t row, const std::string& title) const;
    /// The whole row.
    std::vector<std::string> readRow(std::int32_t row) const;
    CellContent look(std::int32_t row, const std::string& title) const;
    /// What a combo box offers.
    std::vector<std::string> offers(std::int32_t row, const std::string& title) const;

    void type(std::int32_t row, const std::string& title, const std::string& text) const;
    /// An item of a combo box, by its text.
    void pick(std::int32_t row, const std::string& title, const std::string& item) const;
    void toggle(std::int32_t row, const std::string& title) const;
    /// 0xRRGGBB.
    void setColor(std::int32_t row, const std::string& title, std::uint32_t color) const;
    /// Folds or unfolds the group that the row is head of.
    void fold(std::int32_t row) const;
    /// Selects these rows and no others.
    void select(const std::vector<std::int32_t>& selectedRows) const;

  private:
    std::shared_ptr<GridScreen> screen() const;
    std::int32_t columnOf(const std::string& title) const;
    /// The cell, if it is of one of these types; else an error that says what the cell is.
    CellPlace require(std::int32_t row, const std::string& title, const char* action,
                      std::initializer_list<std::int32_t> types) const;
    void requireRow(std::int32_t row) const;

    HeadlessWindow& window;
    const std::string name;
};

/// A user in front of a window without a screen.
class HeadlessUser {
  public:
    /// The window isn't owned and outlives the user.
    explicit HeadlessUser(HeadlessWindow& ofWindow) : window(ofWindow) {}

    GridUser grid(const std::string& gridName) const;
    void press(const std::string& buttonName) const;
    /// Waits, without any real time: timers tick.
    void wait(std::uint32_t milliseconds) const;

  private:
    HeadlessWindow& window;
};

}  // namespace station
