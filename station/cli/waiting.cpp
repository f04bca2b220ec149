#include "station/cli/waiting.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <set>
#include <thread>

#include "core/string_helper.h"
#include "station/cli/live_view.h"
#include "station/cli/text_writer.h"
#include "station/terminal_text.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

std::string describeAwaited(const std::vector<Module>& modules,
                            const std::vector<std::string>& interfaces) {
    return fmt::format("waiting until {} is heard{}{}",
                       modules.size() == 1 ? fmt::format("\"{}\"", modules.front().name)
                                           : fmt::format("one of {} modules", modules.size()),
                       interfaces.empty() ? "" : " on ", fmt::join(interfaces, ", "));
}

bool isAnyHeard(const std::vector<Module>& modules) {
    return std::ranges::any_of(modules, &Module::connected);
}

/// As `printMessage`, but a reader who doesn't read holds up nothing.
void report(TextWriter& writer, const std::string& text) {
    writer.write(STDERR_FILENO, "cmp-station: " + printable(text) + '\n');
}

/// That an interface appears is what may be waited for.
void reportFailures(PluginDriver& driver, TextWriter& writer) {
    for (const InterfaceMessage& message : driver.takeInterfaceMessages()) {
        if (message.isHarmless == hostFalse) {
            report(writer, StringHelper::ToUtf8(message.text));
        }
    }
}

/// What is heard and wasn't asked for, once: most often its ConfigId isn't the one that is set on
/// the module.
void reportUnlisted(Session& session, std::set<std::uint16_t>& reported, TextWriter& writer) {
    for (const Module& module : session.findUnlisted()) {
        if (reported.insert(module.cmId).second) {
            report(writer,
                   fmt::format("CM ID 0x{:X} is heard ({} with ConfigId {}), which no module of "
                               "this setup has",
                               module.cmId, module.type, module.configId));
        }
    }
}

}  // namespace

bool waitForModule(Session& session, const std::vector<std::string>& interfaces,
                   ServiceManager& manager, StopSignal& stop) {
    constexpr auto period = std::chrono::milliseconds(50);
    const std::string awaited = printable(describeAwaited(session.getModules(), interfaces));
    TextWriter writer;
    report(writer, awaited);
    std::set<std::uint16_t> unlisted;
    session.getDriver().listen();
    while (!isAnyHeard(session.getModules())) {
        const auto now = ServiceManager::Clock::now();
        manager.notifyAlive(now, awaited);
        reportFailures(session.getDriver(), writer);
        reportUnlisted(session, unlisted, writer);
        if (stop.waitUntil(now + period)) {
            manager.notifyStopping();
            return false;
        }
    }
    stop.takeHangup();  // there is no file yet that could be ended
    return true;
}

void waitForCompression(PartCompressor& compressor, bool quiet, StopSignal& stop) {
    constexpr auto period = std::chrono::milliseconds(50);
    const bool isShown = !quiet && isTerminal(STDERR_FILENO);
    const bool wasRequested = stop.isRequested();
    stop.keepSecond();
    stop.beginCleanUp();
    bool isStopped = false;
    std::string line;
    while (const auto progress = compressor.getProgress()) {
        isStopped = wasRequested ? stop.isRequestedTwice() : stop.isRequested();
        if (isStopped) {
            break;
        }
        const std::string text = fmt::format(
            "\rcompressing {}: {:3.0f} %{}\033[K", printable(progress->path), progress->share * 100,
            progress->waiting == 0 ? "" : fmt::format(", {} more", progress->waiting));
        if (isShown && text != line) {
            std::fputs(text.c_str(), stderr);
            line = text;
        }
        std::this_thread::sleep_for(period);
    }
    compressor.cancel();
    if (!line.empty()) {
        std::fputs("\r\033[K", stderr);
    }
    printMessages(compressor.takeTexts());
    if (isStopped) {
        printMessage("stopped: what isn't compressed stays as it is");
    }
}

}  // namespace station
