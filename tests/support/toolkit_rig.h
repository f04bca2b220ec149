#pragma once

#include <ostream>

#include "host/toolkit.h"

struct Cell {
    std::string grid;
    std::int32_t row = 0;     ///< of the grid, from 1
    std::int32_t column = 0;  ///< from 0
};

/// A user in front of one window. What he does is false where the toolkit doesn't let him.
class ToolkitUser {
  public:
    virtual ~ToolkitUser() = default;

    virtual std::vector<std::int32_t> shownRows(const std::string& grid) const = 0;
    /// As text: a colour as six hexadecimal digits, an expander as "-" (unfolded) or "+" (folded).
    virtual std::string read(const Cell& cell) const = 0;
    /// Of a combo box; empty for another cell.
    virtual std::vector<std::string> offers(const Cell& cell) const = 0;
    virtual bool press(const std::string& button) const = 0;
    virtual bool type(const Cell& cell, const std::string& text) const = 0;
    virtual bool pick(const Cell& cell, const std::string& item) const = 0;
    virtual bool toggle(const Cell& cell) const = 0;
    virtual bool setColor(const Cell& cell, std::uint32_t color) const = 0;
    virtual bool fold(const std::string& grid, std::int32_t row) const = 0;
    virtual bool select(const std::string& grid, const std::vector<std::int32_t>& rows) const = 0;
};

/// A toolkit under test with its user. Every toolkit of the station has one, and passes the same
/// tests with it.
class ToolkitRig : public virtual ToolkitUser {
  public:
    /// The window object for the plug-in; null after `closeWindow`. Not to be called in a handler
    /// that has closed it.
    virtual Kestrova::Tessel::IWindow* window() = 0;
    /// The user closes the window: the toolkit lets go of it and of its content.
    virtual void closeWindow() = 0;
    virtual std::vector<std::string> titles(const std::string& grid) const = 0;
    /// Lets so much of the toolkit's time pass at least, in which timers tick.
    virtual void passTime(std::uint32_t milliseconds) = 0;
    /// The codes of the handlers that failed, as the user was told, since the last call.
    virtual std::vector<std::uint32_t> takeFailures() = 0;
};

/// The parameter of a suite that runs on each toolkit.
struct MakeToolkitRig {
    const char* name;
    std::unique_ptr<ToolkitRig> (*make)();

    std::unique_ptr<ToolkitRig> operator()() const { return make(); }
    friend std::ostream& operator<<(std::ostream& stream, const MakeToolkitRig& toolkit) {
        return stream << toolkit.name;
    }
};
