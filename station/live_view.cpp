#include "station/live_view.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

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

void writeText(int descriptor, const std::string& text) {
    std::string_view rest = text;
    while (!rest.empty()) {
        const ssize_t written = write(descriptor, rest.data(), rest.size());
        if (written < 0 && errno != EINTR) {
            return;
        }
        rest.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

LiveView::Form LiveView::choose(bool quiet, int descriptor) {
    if (quiet) {
        return Form::Nothing;
    }
    return isatty(descriptor) == 1 ? Form::Table : Form::Lines;
}

LiveView::LiveView(Form chosenForm, int tableDescriptor)
    : form(chosenForm), descriptor(tableDescriptor), next(std::chrono::steady_clock::now()) {
    if (form == Form::Table) {
        writeText(descriptor, enterSecondScreen);
    } else {
        next += std::chrono::seconds(1);
    }
}

LiveView::~LiveView() {
    end();
}

void LiveView::end() {
    if (form == Form::Table) {
        writeText(descriptor, leaveSecondScreen);
        writeText(STDERR_FILENO, messages);
    }
    form = Form::Nothing;
}

bool LiveView::isDue(std::chrono::steady_clock::time_point now) const {
    return form != Form::Nothing && now >= next;
}

void LiveView::show(const Summary& summary, std::chrono::steady_clock::time_point now) {
    if (form == Form::Table) {
        draw(summary);
        next = now + std::chrono::milliseconds(200);
    } else if (form == Form::Lines) {
        writeText(STDERR_FILENO, toProgressLine(summary) + '\n');
        next += std::chrono::seconds(1);
    }
}

/// What doesn't fit the screen is cut: a line that wraps would move all below it.
void LiveView::draw(const Summary& summary) const {
    const Size size = terminalSize(descriptor);
    std::string text = home;
    std::size_t row = 0;
    for (const std::string& line : toTable(summary)) {
        if (++row >= size.rows) {
            break;
        }
        text += line.substr(0, size.columns - 1) + clearRestOfLine + "\r\n";
    }
    writeText(descriptor, text + clearBelow);
}

void LiveView::tell(const std::string& text) {
    if (form == Form::Table) {
        messages += text + '\n';
    } else {
        writeText(STDERR_FILENO, text + '\n');
    }
}

}  // namespace station
