#include "station/terminal_text.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>
#include <utf8.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>

#include "station/errors.h"

namespace station {
namespace {

bool isHarmful(std::uint32_t character) {
    const auto isIn = [character](std::uint32_t first, std::uint32_t last) {
        return character >= first && character <= last;
    };
    return character < 0x20 || isIn(0x7F, 0x9F) ||  // control characters
           character == 0x061C || isIn(0x200E, 0x200F) || isIn(0x202A, 0x202E) ||
           isIn(0x2066, 0x2069) ||  // writing direction
           isIn(0x2028, 0x2029);    // line breaks
}

std::string replaceHarmful(std::string_view text, bool keepsLines) {
    std::string safe;
    for (auto at = text.begin(); at != text.end();) {
        const auto start = at;
        std::uint32_t character = 0;
        try {
            character = utf8::next(at, text.end());
        } catch (const utf8::exception&) {
            at = start + 1;
        }
        if (isHarmful(character) && !(keepsLines && character == '\n')) {
            safe += '?';
        } else {
            safe.append(start, at);
        }
    }
    return safe;
}

void printSafe(const std::string& text) {
    const std::string line = "cmp-station: " + text + '\n';
    writeAll(STDERR_FILENO, line);
}

}  // namespace

std::string printable(std::string_view text) {
    return replaceHarmful(text, false);
}

std::string printableLines(std::string_view text) {
    return replaceHarmful(text, true);
}

std::string toText(const nlohmann::ordered_json& json) {
    return json.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

void printMessage(std::string_view text) {
    printSafe(printable(text));
}

void printMessage(const UserError& error) {
    const bool hasLines = error.getCode() == ExitCode::NotAllowed;
    printSafe(hasLines ? printableLines(error.what()) : printable(error.what()));
}

void printMessages(const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
        printMessage(text);
    }
}

int writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            constexpr int forever = -1;
            pollfd room{descriptor, POLLOUT, 0};
            poll(&room, 1, forever);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

void printResult(std::string_view text) {
    const int error = writeAll(STDOUT_FILENO, text);
    if (error == EPIPE) {
        std::signal(SIGPIPE, SIG_DFL);
        std::raise(SIGPIPE);
    }
    if (error != 0) {
        throw UserError(ExitCode::Failed,
                        fmt::format("can't print the result: {}", std::strerror(error)));
    }
}

}  // namespace station
