#include "station/cli/live_view.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

#include "station/recording/bounded_name.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* enterSecondScreen = "\033[?1049h\033[?25l";
constexpr const char* leaveSecondScreen = "\033[?25h\033[?1049l";
constexpr const char* toTopLeft = "\033[H";
constexpr const char* clearRestOfLine = "\033[K";
constexpr const char* clearBelow = "\033[J";

constexpr std::size_t mostMessagesShown = 5;  // below the table
constexpr std::size_t mostMessagesKept = 1000;

struct Size {
    std::size_t rows = 24;
    std::size_t columns = 80;
};

Size terminalSize(int descriptor) {
    winsize size{};
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
        return {};
    }
    return {size.ws_row, size.ws_col};
}

}  // namespace

bool isTerminal(int descriptor) {
    const char* const kind = std::getenv("TERM");
    return isatty(descriptor) == 1 && kind != nullptr && *kind != '\0' &&
           std::string_view(kind) != "dumb";
}

LiveView::Form LiveView::choose(bool quiet, int descriptor) {
    if (quiet) {
        return Form::Nothing;
    }
    return isTerminal(descriptor) ? Form::Table : Form::Lines;
}

LiveView::LiveView(Form chosenForm, int tableDescriptor)
    : form(chosenForm), descriptor(tableDescriptor), next(std::chrono::steady_clock::now()) {
    if (form == Form::Table) {
        writer.write(descriptor, enterSecondScreen);
    } else {
        next += std::chrono::seconds(1);
    }
}

LiveView::~LiveView() {
    end();
}

void LiveView::end() {
    if (form == Form::Table) {
        writer.write(descriptor, leaveSecondScreen);
        if (isatty(STDERR_FILENO) == 1) {
            writer.write(STDERR_FILENO, joinMessages());
        }
    }
    form = Form::Nothing;
    writer.finish();
}

const char* LiveView::getRestore() const {
    return form == Form::Table ? leaveSecondScreen : nullptr;
}

bool LiveView::isDue(std::chrono::steady_clock::time_point now) const {
    return form != Form::Nothing && now >= next && !writer.isBusy();
}

void LiveView::show(const Summary& summary, std::chrono::steady_clock::time_point now) {
    if (form == Form::Table) {
        draw(summary);
        next = now + std::chrono::milliseconds(200);
    } else if (form == Form::Lines) {
        // After a stop that waits for a disk there is nothing new to say.
        if (const std::string line = toProgressLine(summary); line != lastLine) {
            writer.write(STDERR_FILENO, line + '\n');
            lastLine = line;
        }
        next = std::max(next + std::chrono::seconds(1), now);
    }
}

/// What doesn't fit the screen is cut: a line that wraps would move all below it. The messages are
/// left their place below a long table.
void LiveView::draw(const Summary& summary) {
    const Size size = terminalSize(descriptor);
    const std::size_t rows = size.rows - 1;
    std::vector<std::string> lines = toTable(summary);
    if (const std::size_t shown = std::min({messages.size(), mostMessagesShown, rows / 2});
        shown != 0) {
        lines.resize(std::min(lines.size(), rows - 1 - shown));
        lines.push_back(fmt::format("messages, the last {} of {}:", shown, countMessages));
        lines.insert(lines.end(), messages.end() - static_cast<std::ptrdiff_t>(shown),
                     messages.end());
    }
    lines.resize(std::min(lines.size(), rows));
    std::string text = toTopLeft;
    for (const std::string& line : lines) {
        text += boundedName(line, size.columns - 1) + clearRestOfLine + "\r\n";
    }
    writer.write(descriptor, text + clearBelow);
}

void LiveView::report(const std::string& text) {
    std::string line = printable(text);
    if (form != Form::Table || isatty(STDERR_FILENO) == 0) {
        writer.write(STDERR_FILENO, line + '\n');
    }
    if (form == Form::Table) {
        messages.push_back(std::move(line));
        ++countMessages;
        if (messages.size() > mostMessagesKept) {
            messages.pop_front();
        }
    }
}

void LiveView::report(const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
        report(text);
    }
}

std::string LiveView::joinMessages() const {
    std::string text;
    if (countMessages > messages.size()) {
        text = fmt::format("({} earlier messages are left out)\n", countMessages - messages.size());
    }
    for (const std::string& line : messages) {
        text += line + '\n';
    }
    return text;
}

}  // namespace station
