#include "station/fleet/collect_folder.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <random>
#include <system_error>

#include "core/whole_file.h"
#include "station/errors.h"

namespace station {
namespace {

namespace fs = std::filesystem;

constexpr mode_t permissions = 0644;
constexpr std::size_t mostSettings = 65536;

void makeFolder(const fs::path& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error) {
        throw UserError(ExitCode::Failed,
                        fmt::format("the folder {} can't be made: {}; name another one with --out",
                                    path.string(), error.message()));
    }
}

std::string newDurable() {
    std::random_device random;
    return fmt::format("collect-{:08x}{:08x}", random(), random());
}

}  // namespace

std::string safeFileName(std::string_view name) {
    constexpr std::size_t longest = 100;
    constexpr std::string_view unsafe = "/\\:*?\"<>|=";
    const auto isPlain = [&](std::size_t i) {
        const auto c = static_cast<unsigned char>(name[i]);
        constexpr unsigned char del = 0x7F;
        return c >= ' ' && c < del && unsafe.find(name[i]) == unsafe.npos &&
               (c != '.' || (i != 0 && i + 1 != name.size())) &&
               (c != ' ' || (i != 0 && i + 1 != name.size()));
    };
    std::string safe;
    for (std::size_t i = 0; i < name.size(); ++i) {
        safe += isPlain(i) ? std::string(1, name[i])
                           : fmt::format("={:02X}", static_cast<unsigned char>(name[i]));
    }
    if (safe.size() > longest) {
        // A digest in place of the end: what the network sends may be longer than a file's name.
        std::uint64_t digest = 0xCBF29CE484222325;
        for (const char c : name) {
            digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001B3;
        }
        safe = fmt::format("{}=={:016x}", safe.substr(0, longest), digest);
    }
    return safe.empty() ? "=" : safe;
}

void syncFolderOf(const fs::path& file) {
    const Descriptor folder(::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.isOpen()) {
        ::fsync(folder.get());
    }
}

CollectFolder::CollectFolder(fs::path folder, const Settings& wanted)
    : path(std::move(folder)), own(path / ".collect") {
    makeFolder(own);
    lock();
    compare(wanted);
    std::error_code ignored;
    fs::remove_all(getScratch(), ignored);
    makeFolder(getScratch());
}

void CollectFolder::lock() {
    opened = Descriptor(::open(own.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened.isOpen()) {
        throw UserError(ExitCode::Failed,
                        fmt::format("{} can't be opened: {}", own.string(), reasonOf(errno)));
    }
    if (::flock(opened.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw UserError(ExitCode::Failed,
                        fmt::format("another collector writes into {}; end it, or name another "
                                    "folder with --out",
                                    path.string()));
    }
}

/// Or takes over, if nothing was collected yet.
void CollectFolder::compare(const Settings& wanted) {
    const fs::path file = own / "collect.json";
    try {
        if (const auto text = readWholeFile(file, mostSettings)) {
            const auto there = nlohmann::json::parse(*text);
            durable = there.at("durable").get<std::string>();
            const std::pair<const char*, std::string> all[] = {
                {"stream", wanted.stream},
                {"durable", wanted.durable.empty() ? durable : wanted.durable},
                {"station", wanted.stations},
                {"from", wanted.from}};
            for (const auto& [name, value] : all) {
                const auto before = there.at(name).get<std::string>();
                if (before != value) {
                    throw UserError(fmt::format(
                        "{} was begun with {} \"{}\" and not \"{}\", and goes on with that only: "
                        "what was passed over then isn't given again. Name another folder with "
                        "--out",
                        path.string(), name, before, value));
                }
            }
            return;
        }
        durable = wanted.durable.empty() ? newDurable() : wanted.durable;
        const nlohmann::json begun = {{"stream", wanted.stream},
                                      {"durable", durable},
                                      {"station", wanted.stations},
                                      {"from", wanted.from}};
        FileReplacement(file, begun.dump(1) + '\n', permissions).commit();
    } catch (const nlohmann::json::exception& error) {
        throw UserError(ExitCode::Failed,
                        fmt::format("{} isn't what a collector wrote ({}); name another folder "
                                    "with --out",
                                    file.string(), error.what()));
    } catch (const UserError&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw UserError(ExitCode::Failed, fmt::format("{}: {}", file.string(), error.what()));
    }
}

fs::path CollectFolder::makeStationFolder(const std::string& station) const {
    constexpr int mostFolders = 9;
    for (int i = 1;; ++i) {
        fs::path folder =
            path / (safeFileName(station) + (i == 1 ? std::string() : fmt::format("=-{}", i)));
        std::error_code error;
        fs::create_directories(folder, error);
        if (!error && ::access(folder.c_str(), W_OK | X_OK) == 0) {
            return folder;
        }
        const int failure = error ? error.value() : errno;
        if (i == mostFolders || failure == ENOSPC || failure == EDQUOT) {
            throw UserError(
                ExitCode::Failed,
                fmt::format("the folder {} can't be written: {}; name another one with --out",
                            folder.string(), reasonOf(failure)));
        }
    }
}

fs::path CollectFolder::makeStatePath(const std::string& token, const std::string& session) const {
    const fs::path folder = own / "sessions" / safeFileName(token);
    makeFolder(folder);
    return folder / (safeFileName(session) + ".json");
}

std::vector<fs::path> CollectFolder::listStates() const {
    std::vector<fs::path> states;
    std::error_code error;
    fs::recursive_directory_iterator at(own / "sessions", error);
    for (; !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
        if (at->path().extension() == ".json") {
            states.push_back(at->path());
        }
    }
    std::ranges::sort(states);
    return states;
}

bool CollectFolder::sync() const {
    return ::syncfs(opened.get()) == 0;
}

}  // namespace station
