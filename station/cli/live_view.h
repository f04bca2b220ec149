#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>

#include "station/cli/text_writer.h"
#include "station/session/summary.h"

namespace station {

/// Whether the descriptor is a terminal that understands what moves its cursor.
bool isTerminal(int descriptor);

/// What the user sees while a measurement runs: on a terminal a table, redrawn five times a second;
/// elsewhere one line a second on standard error; or nothing.
///
/// The table is drawn on the terminal's second screen, so that what was there before comes back.
/// The last messages are below it. Nothing here waits for the terminal while the measurement runs.
class LiveView {
  public:
    enum class Form { Table, Lines, Nothing };

    /// Which form fits: the table needs a terminal at the descriptor that it is drawn on.
    static Form choose(bool quiet, int descriptor);

    /// The descriptor is the one that the table is drawn on.
    LiveView(Form chosenForm, int tableDescriptor);
    ~LiveView();
    LiveView(const LiveView&) = delete;
    LiveView& operator=(const LiveView&) = delete;

    /// Whether it is time for `show`: not while the terminal still has the last one to take.
    bool isDue(std::chrono::steady_clock::time_point now) const;
    void show(const Summary& summary, std::chrono::steady_clock::time_point now);
    /// What restores the terminal if the program has to end at once: a literal; null for nothing.
    const char* getRestore() const;
    /// A message for the user: on standard error at once, unless that is a terminal, whose table it
    /// would disturb.
    void report(const std::string& text);
    void report(const std::vector<std::string>& texts);
    /// Leaves the table and prints the messages that have not been printed; what is printed from
    /// now on stays on the screen.
    void end();

  private:
    void draw(const Summary& summary);
    std::string joinMessages() const;

    TextWriter writer;
    Form form;
    const int descriptor;
    std::chrono::steady_clock::time_point next;
    std::deque<std::string> messages;  ///< the last that came while the table was shown
    std::size_t countMessages = 0;     ///< all of them
    std::string lastLine;              ///< of those once a second
};

}  // namespace station
