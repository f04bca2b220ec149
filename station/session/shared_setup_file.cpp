#include "station/session/shared_setup_file.h"

#include <fmt/format.h>

#include <chrono>
#include <future>
#include <thread>

#include "core/whole_file.h"

namespace station {
namespace {

namespace fs = std::filesystem;

/// Nothing also for a file that can't be read: opening or saving it says why.
std::optional<std::string> contentOf(const fs::path& file) {
    try {
        return readWholeFile(file);
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

/// The caller may be an event loop, which can't wait for a program that keeps the lock: a thread
/// does, and gives the lock back if it gets it too late.
std::unique_ptr<SetupLock> lockSoon(const fs::path& file) {
    constexpr auto patience = std::chrono::milliseconds(500);
    std::packaged_task<std::unique_ptr<SetupLock>()> waiting(
        [file] { return std::make_unique<SetupLock>(file); });
    auto lock = waiting.get_future();
    std::thread(std::move(waiting)).detach();
    if (lock.wait_for(patience) != std::future_status::ready) {
        throw UserError(
            fmt::format("Cannot save the setup \"{}\": another program is changing setups in its "
                        "folder. Try again when it is done.",
                        file.string()));
    }
    return lock.get();
}

}  // namespace

SharedSetupFile::SharedSetupFile(fs::path file) : path(std::move(file)), seen(contentOf(path)) {}

bool SharedSetupFile::save(Session& session, const fs::path& to) {
    const auto lock = lockSoon(to);
    std::error_code ignored;
    if (to == path || fs::equivalent(to, path, ignored)) {
        auto present = contentOf(to);
        if (present && present != seen) {
            seen = std::move(present);
            return false;
        }
    }
    session.save(SetupFile(to));
    path = to;
    seen = contentOf(to);
    return true;
}

}  // namespace station
