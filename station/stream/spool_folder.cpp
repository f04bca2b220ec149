#include "station/stream/spool_folder.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>

#include "core/whole_file.h"
#include "station/errors.h"

namespace station {
namespace {

const char* stateOf(const SpoolPlace& place) {
    return place.isDone ? "-done-" : place.isGone ? "-gone-" : "-acknowledged-";
}

}  // namespace

/// As `Spool::nameNext` and `RecordingSeries` have it.
std::optional<SpoolKey> spoolKeyOf(const std::filesystem::path& path) {
    const std::string name = path.stem();
    const std::size_t dash = name.rfind('-');
    SpoolKey key;
    int measurementEnd = 0;
    int partEnd = 0;
    if (path.extension() != spoolPartEnding || dash == name.npos ||
        std::sscanf(name.c_str(), "%8" SCNu64 "-%n", &key.measurement, &measurementEnd) != 1 ||
        std::sscanf(name.c_str() + dash, "-%9" SCNu64 "%n", &key.part, &partEnd) != 1 ||
        measurementEnd != 9 || dash + static_cast<std::size_t>(partEnd) != name.size()) {
        return std::nullopt;
    }
    return key;
}

Descriptor lockSpool(const std::filesystem::path& folder) {
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    if (failure) {
        throw UserError(
            fmt::format("--spool: {} can't be made: {}; name a folder that you may "
                        "write to",
                        folder.string(), failure.message()));
    }
    const std::filesystem::path path = folder / spoolLockName;
    Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!file.isOpen()) {
        throw UserError(
            fmt::format("--spool: {} can't be written: {}; name a folder that you may "
                        "write to",
                        path.string(), std::strerror(errno)));
    }
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw UserError(ExitCode::Failed,
                        fmt::format("--spool: another station of this name uses {}; end it, or "
                                    "give this one another name with --station",
                                    folder.string()));
    }
    return file;
}

void noteSpoolOwner(const std::filesystem::path& folder, const Descriptor& lockFile,
                    const std::string& stationToken, bool hasParts) {
    std::array<char, 1024> there{};
    const ssize_t size = ::pread(lockFile.get(), there.data(), there.size(), 0);
    const std::string owner(there.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    if (owner == stationToken) {
        return;
    }
    if (!owner.empty() && hasParts) {
        throw UserError(
            fmt::format("--spool: {} has messages of the station \"{}\" that aren't sent yet; send "
                        "them as that one (--station), or name another folder",
                        folder.string(), owner));
    }
    if (::ftruncate(lockFile.get(), 0) != 0 ||
        ::pwrite(lockFile.get(), stationToken.data(), stationToken.size(), 0) < 0) {
        throw UserError(fmt::format("--spool: {} can't be written: {}",
                                    (folder / spoolLockName).string(), std::strerror(errno)));
    }
}

std::vector<SpoolPlace> readSpoolNote(const std::filesystem::path& folder, const char* name) {
    constexpr std::size_t longestNote = std::size_t{16} << 20U;
    std::istringstream lines;
    try {
        lines.str(readWholeFile(folder / name, longestNote).value_or(""));
    } catch (const std::runtime_error&) {
        return {};
    }
    std::vector<SpoolPlace> places;
    for (std::string text; std::getline(lines, text);) {
        std::istringstream line(text);
        std::string part;
        SpoolPlace place;
        line >> part;
        const auto key = spoolKeyOf(part);
        if (!key || !(line >> place.offset)) {
            return {};
        }
        place.part = *key;
        place.isDone = part.find("-done-") != part.npos;
        place.isGone = place.isDone || part.find("-gone-") != part.npos;
        line >> place.lastPart >> place.lastBytes;  // not in a note of an earlier version
        places.push_back(place);
    }
    return places;
}

bool writeSpoolNote(const std::filesystem::path& folder, const std::vector<SpoolPlace>& places,
                    const char* name) {
    const std::filesystem::path next = folder / fmt::format("{}.new", name);
    {
        std::ofstream file(next, std::ios::trunc);
        for (const SpoolPlace& place : places) {
            file << fmt::format("{:08}{}{:04}{} {} {} {}\n", place.part.measurement, stateOf(place),
                                place.part.part, spoolPartEnding, place.offset, place.lastPart,
                                place.lastBytes);
        }
        if (!file.flush()) {
            return false;
        }
    }
    std::error_code failure;
    std::filesystem::rename(next, folder / name, failure);
    return !failure;
}

}  // namespace station
