#include "station/cli/live_view.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* enterSecondScreen = "\033[?1049h\033[?25l";
constexpr const char* leaveSecondScreen = "\033[?25h\033[?1049l";
constexpr const char* home = "\033[H";
constexpr const char* clearRestOfLine = "\033[K";
constexpr const char* clearBelow = "\033[J";

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
        writer.write(STDERR_FILENO, messages);
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
        writer.write(STDERR_FILENO, toProgressLine(summary) + '\n');
        next = std::max(next + std::chrono::seconds(1), now);
    }
}

/// What doesn't fit the screen is cut: a line that wraps would move all below it.
void LiveView::draw(const Summary& summary) {
    const Size size = terminalSize(descriptor);
    std::string text = home;
    std::size_t row = 0;
    for (const std::string& line : toTable(summary)) {
        if (++row >= size.rows) {
            break;
        }
        text += line.substr(0, size.columns - 1) + clearRestOfLine + "\r\n";
    }
    writer.write(descriptor, text + clearBelow);
}

void LiveView::tell(const std::string& text) {
    if (form == Form::Table) {
        messages += printable(text) + '\n';
    } else {
        writer.write(STDERR_FILENO, printable(text) + '\n');
    }
}

}  // namespace station
