#include "station/cli/waiting.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>

#include "core/string_helper.h"
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

/// That an interface appears is what may be waited for.
void tellFailures(PluginDriver& driver) {
    for (const InterfaceMessage& message : driver.takeInterfaceMessages()) {
        if (message.isHarmless == hostFalse) {
            printMessage(StringHelper::ToUtf8(message.text));
        }
    }
}

}  // namespace

bool waitForModule(Session& session, const std::vector<std::string>& interfaces,
                   ServiceManager& manager, StopSignal& stop) {
    constexpr auto period = std::chrono::milliseconds(50);
    const std::string awaited = printable(describeAwaited(session.getModules(), interfaces));
    printMessage(awaited);
    session.driver().listen();
    while (!isAnyHeard(session.getModules())) {
        const auto now = ServiceManager::Clock::now();
        manager.tellAlive(now, awaited);
        tellFailures(session.driver());
        if (stop.waitUntil(now + period)) {
            manager.tellStopping();
            return false;
        }
    }
    stop.takeHangup();  // there is no file yet that could be ended
    return true;
}

}  // namespace station
